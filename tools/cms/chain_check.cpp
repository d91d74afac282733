#include "tools/cms/chain_check.h"

#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

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
    {CERT_TRUST_IS_NOT_TIME_VALID, "a certificate had expired or was not valid yet at that time"},
    {CERT_TRUST_IS_PARTIAL_CHAIN, "it leads to no root, as an issuer's certificate is missing; --root names roots"},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "a certificate was issued by one that may not issue any"},
    {CERT_TRUST_IS_CYCLIC, "it runs in a circle"},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "its certificates are not meant for this use"},
    {~DWORD{0}, "openssl verify tells more about it"},
};

CertificateChain buildChain(const CERT_CONTEXT& holder, const std::vector<Bytes>& known, const Roots& roots, FILETIME at)
{
    const CertificateStore store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!store) failWithLastError("can't check the chain");
    for (const Bytes& der : known)
        CertAddEncodedCertificateToStore(store.get(), certificateEncoding, der.data(), static_cast<DWORD>(der.size()),
                                         CERT_STORE_ADD_ALWAYS, nullptr);
    for (const CertificateContext& root : roots)
        CertAddCertificateContextToStore(store.get(), root.get(), CERT_STORE_ADD_ALWAYS, nullptr);
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    PCCERT_CHAIN_CONTEXT built = nullptr;
    if (!CertGetCertificateChain(nullptr, &holder, &at, store.get(), &parameters, CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr,
                                 &built))
        failWithLastError("can't check the chain");
    return CertificateChain(built);
}

std::span<CERT_CHAIN_ELEMENT* const> elementsOf(const CERT_CHAIN_CONTEXT& chain)
{
    const CERT_SIMPLE_CHAIN& simple = *chain.rgpChain[0];
    return {simple.rgpElement, simple.cElement};
}

const CERT_CONTEXT& lastOf(const CERT_CHAIN_CONTEXT& chain)
{
    return *elementsOf(chain).back()->pCertContext;
}

// Names an outdated certificate first. That says more than Windows' verdict on the whole chain.
void refuseFaults(const CERT_CHAIN_CONTEXT& chain, DWORD ignored, const FILETIME& at)
{
    const DWORD faults = chain.TrustStatus.dwErrorStatus & ~(ignored | CERT_TRUST_IS_NOT_TIME_NESTED);
    for (const CERT_CHAIN_ELEMENT* element : elementsOf(chain)) {
        const CERT_CONTEXT& certificate = *element->pCertContext;
        const std::string fault = validityFault(certificate, at);
        if ((faults & CERT_TRUST_IS_NOT_TIME_VALID) && !fault.empty())
            throw Refusal("the signer's chain does not hold: the certificate of " + subjectOf(certificate) + " " + fault +
                          "; --at judges another time");
    }
    for (const Fault& fault : chainFaults)
        if (faults & fault.status) throw Refusal(std::string("the signer's chain does not hold: ") + fault.text);
}

ChainEnd endOf(const CERT_CHAIN_CONTEXT& chain)
{
    const CERT_CONTEXT& last = lastOf(chain);
    return {!(chain.TrustStatus.dwErrorStatus & unknownRoot), subjectOf(last), isSelfIssued(last) ? "" : issuerOf(last)};
}

} // namespace

ChainEnd checkChain(const Signer& signer, const CheckedSignature& checked, const Roots& roots, const FILETIME& at)
{
    if (!mayBeUsedFor(*signer.certificate, signatureUsage))
        throw Refusal("the signer's certificate does not allow signatures: its key usage is another");
    const CertificateChain chain = buildChain(*signer.certificate, checked.certificates, roots, at);
    refuseFaults(*chain, roots.empty() ? unknownRoot : CERT_TRUST_IS_UNTRUSTED_ROOT, at);
    ChainEnd end = endOf(*chain);
    if (roots.empty()) return end;
    const CERT_CONTEXT& last = lastOf(*chain);
    if (std::ranges::none_of(roots, [&](const auto& root) { return sameBytes(encodedOf(*root), encodedOf(last)); }))
        throw Refusal("the signer's chain ends in " + end.name + ", which is not the root given with --root");
    end.trusted = true;
    return end;
}

ChainEnd describeChain(const CERT_CONTEXT& holder, const std::vector<Bytes>& known)
{
    // The validity is checked elsewhere.
    return endOf(*buildChain(holder, known, {}, holder.pCertInfo->NotBefore));
}

std::vector<Bytes> chainFromSystem(const CERT_CONTEXT& certificate)
{
    const CertificateChain chain = buildChain(certificate, {}, {}, timeNow());
    std::vector<Bytes> found;
    for (const CERT_CHAIN_ELEMENT* element : elementsOf(*chain)) found.push_back(toBytes(encodedOf(*element->pCertContext)));
    return found;
}

} // namespace quelta::tools
