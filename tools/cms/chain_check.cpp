#include "tools/cms/chain_check.h"

#include "common/object_ids.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/token/key_choice.h"

#include <algorithm>

namespace quelta::tools {

namespace {

struct Fault {
    DWORD status;
    const char* text;
};

constexpr DWORD unknownRoot = CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN;

constexpr Fault chainFaults[] = {
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, "a certificate carries a bad signature"},
    {CERT_TRUST_IS_NOT_TIME_VALID, "a certificate had expired or was not valid yet at that time; --at judges another time"},
    {CERT_TRUST_IS_PARTIAL_CHAIN, "it leads to no root, as an issuer's certificate is missing; --root names roots"},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "a certificate was issued by one that may not issue any"},
    {CERT_TRUST_IS_CYCLIC, "it runs in a circle"},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "its certificates are not meant for this use"},
    {~DWORD{0}, "openssl verify tells more about it"},
};

std::string ownerOf(ChainPurpose purpose)
{
    return purpose == ChainPurpose::signatures ? "the signer's " : "its authority's ";
}

CertificateStore storeOf(const CheckedSignature& checked, const Roots& roots)
{
    CertificateStore store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!store) failWithLastError("can't check the chain");
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = CertEnumCertificatesInStore(checked.certificates.get(), certificate)))
        CertAddCertificateContextToStore(store.get(), certificate, CERT_STORE_ADD_ALWAYS, nullptr);
    for (const CertificateContext& root : roots)
        CertAddCertificateContextToStore(store.get(), root.get(), CERT_STORE_ADD_ALWAYS, nullptr);
    return store;
}

CertificateChain buildChain(const Signer& signer, const CheckedSignature& checked, const Roots& roots, FILETIME at,
                            ChainPurpose purpose)
{
    const CertificateStore store = storeOf(checked, roots);
    std::string usage(oid::timeStamping);
    LPSTR usages[] = {usage.data()};
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    if (purpose == ChainPurpose::timeStamps) parameters.RequestedUsage = {USAGE_MATCH_TYPE_AND, {1, usages}};
    PCCERT_CHAIN_CONTEXT built = nullptr;
    if (!CertGetCertificateChain(nullptr, signer.certificate.get(), &at, store.get(), &parameters,
                                 CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, &built))
        failWithLastError("can't check the chain");
    return CertificateChain(built);
}

void refuseFaults(const Signer& signer, const CERT_CHAIN_CONTEXT& chain, DWORD ignored, const std::string& owner)
{
    if (!mayBeUsedFor(*signer.certificate, signatureUsage))
        throw Refusal(owner + "certificate does not allow signatures: its key usage is another");
    const DWORD faults = chain.TrustStatus.dwErrorStatus & ~(ignored | CERT_TRUST_IS_NOT_TIME_NESTED);
    for (const Fault& fault : chainFaults)
        if (faults & fault.status) throw Refusal(owner + "chain does not hold: " + fault.text);
}

const CERT_CONTEXT& lastOf(const CERT_CHAIN_CONTEXT& chain)
{
    const CERT_SIMPLE_CHAIN& simple = *chain.rgpChain[0];
    return *simple.rgpElement[simple.cElement - 1]->pCertContext;
}

ChainEnd endOf(const CERT_CHAIN_CONTEXT& chain)
{
    return {!(chain.TrustStatus.dwErrorStatus & unknownRoot), subjectOf(lastOf(chain))};
}

} // namespace

ChainEnd checkChain(const Signer& signer, const CheckedSignature& checked, const Roots& roots, FILETIME at, ChainPurpose purpose)
{
    const CertificateChain chain = buildChain(signer, checked, roots, at, purpose);
    const std::string owner = ownerOf(purpose);
    refuseFaults(signer, *chain, roots.empty() ? unknownRoot : CERT_TRUST_IS_UNTRUSTED_ROOT, owner);
    if (roots.empty()) return endOf(*chain);
    const CERT_CONTEXT& last = lastOf(*chain);
    if (std::ranges::none_of(roots, [&](const auto& root) { return sameBytes(encodedOf(*root), encodedOf(last)); }))
        throw Refusal(owner + "chain ends in " + subjectOf(last) + ", which is not the root given with --root");
    return {true, subjectOf(last)};
}

ChainEnd describeChain(const Signer& signer, const CheckedSignature& checked, FILETIME at)
{
    return endOf(*buildChain(signer, checked, {}, at, ChainPurpose::signatures));
}

} // namespace quelta::tools
