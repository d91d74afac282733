#include "csp/certificate_chain.h"

#include "base/windows_objects.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

namespace quelta {

namespace {

// Positions in the token's certificate list.
using Chain = std::vector<std::size_t>;
using CertificateChainMap = std::map<std::string, Chain>;

// A certificate's subject or issuer in its encoding. Two names are equal if their bytes are equal, as in
// CertCompareCertificateName.
using EncodedName = std::string_view;

EncodedName encoded(const CERT_NAME_BLOB& name)
{
    return {reinterpret_cast<const char*>(name.pbData), name.cbData};
}

// The token's certificates, each parsed once. An index finds the issuers: a search of the list for every step of every chain
// would take quadratic time.
class CertificateSet {
public:
    explicit CertificateSet(std::vector<QueltaCertificate> records) : records_(std::move(records))
    {
        parsed_.reserve(records_.size());
        for (std::size_t i = 0; i < records_.size(); ++i) {
            const ByteView bytes = der(i);
            parsed_.emplace_back(
                CertCreateCertificateContext(certificateEncoding, bytes.data(), static_cast<DWORD>(bytes.size())));
            if (parsed_[i]) bySubject_[encoded(parsed_[i]->pCertInfo->Subject)].push_back(i);
        }
    }

    std::size_t size() const { return records_.size(); }
    ByteView der(std::size_t position) const { return certificateOf(records_[position]); }
    // Returns null if the certificate could not be parsed.
    PCCERT_CONTEXT parsed(std::size_t position) const { return parsed_[position].get(); }

    // Returns the position of the first certificate with this subject, except `leaf`; nullopt if there is none.
    std::optional<std::size_t> findBySubject(EncodedName subject, std::size_t leaf) const
    {
        const auto found = bySubject_.find(subject);
        if (found == bySubject_.end()) return std::nullopt;
        for (const std::size_t position : found->second) {
            if (position != leaf) return position;
        }
        return std::nullopt;
    }

private:
    std::vector<QueltaCertificate> records_;
    std::vector<CertificateContext> parsed_;
    std::map<EncodedName, std::vector<std::size_t>> bySubject_;
};

Chain issuerChain(const CertificateSet& certificates, std::size_t leaf)
{
    Chain chain = {leaf};
    PCCERT_CONTEXT current = certificates.parsed(leaf);
    if (!current) {
        logDebug("[ERROR] Cannot parse leaf cert");
        return chain;
    }
    while (const auto issuer = certificates.findBySubject(encoded(current->pCertInfo->Issuer), leaf)) {
        // Stop when the issuers form a loop.
        if (std::ranges::find(chain, *issuer) != chain.end()) break;
        chain.push_back(*issuer);
        current = certificates.parsed(*issuer);
        if (encoded(current->pCertInfo->Subject) == encoded(current->pCertInfo->Issuer)) {
            logDebug("[ROOT] Self-signed root detected.");
            break;
        }
    }
    return chain;
}

CertificateChainMap collectChains(const CertificateSet& certificates, const std::vector<QueltaKeyPair>& pairs)
{
    CertificateChainMap chains;
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        const auto publicKey = publicKeyOfCertificate(certificates.der(i));
        if (!publicKey) continue;
        for (const auto& pair : pairs) {
            if (!sameBytes(publicKeyOf(pair), *publicKey)) continue;
            const std::string container = keyName(pair);
            logDebug("Public key match found; container=", container);
            const Chain chain = issuerChain(certificates, i);
            auto& collected = chains[container];
            collected.insert(collected.end(), chain.begin(), chain.end());
        }
    }
    return chains;
}

CertificateStore storeOf(const CertificateSet& certificates, const Chain& chain)
{
    CertificateStore store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!store) return store;
    for (const auto position : chain) {
        if (const PCCERT_CONTEXT certificate = certificates.parsed(position)) {
            CertAddCertificateContextToStore(store.get(), certificate, CERT_STORE_ADD_ALWAYS, nullptr);
        }
    }
    return store;
}

CertificateChain buildChain(PCCERT_CONTEXT leaf, HCERTSTORE store)
{
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    if (!CertGetCertificateChain(nullptr, leaf, nullptr, store, &parameters, 0, nullptr, &chain)) return nullptr;
    return CertificateChain(chain);
}

// Returns the certificates of each simple chain from the root end to the leaf. The blobs refer to the chain's certificates.
std::vector<CERT_BLOB> encodedCertificates(PCCERT_CHAIN_CONTEXT chain)
{
    std::vector<CERT_BLOB> blobs;
    for (DWORD i = 0; i < chain->cChain; ++i) {
        const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[i];
        for (DWORD j = simple.cElement; j > 0; --j) {
            const PCCERT_CONTEXT certificate = simple.rgpElement[j - 1]->pCertContext;
            blobs.push_back({certificate->cbCertEncoded, certificate->pbCertEncoded});
        }
    }
    return blobs;
}

CryptMessage openMessage(std::vector<CERT_BLOB>& certificates)
{
    CMSG_SIGNED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    info.cCertEncoded = static_cast<DWORD>(certificates.size());
    info.rgCertEncoded = certificates.data();
    return CryptMessage(CryptMsgOpenToEncode(certificateEncoding, 0, CMSG_SIGNED, &info, nullptr, nullptr));
}

Answer putMessage(HCRYPTMSG message, Output out)
{
    CryptMsgUpdate(message, nullptr, 0, TRUE);
    DWORD size = 0;
    if (!CryptMsgGetParam(message, CMSG_CONTENT_PARAM, 0, nullptr, &size)) return fail(GetLastError());
    Bytes content(size);
    if (!CryptMsgGetParam(message, CMSG_CONTENT_PARAM, 0, content.data(), &size)) return fail(GetLastError());
    content.resize(size);
    return putOrMoreData(out, content);
}

Answer encodeChain(const CertificateSet& certificates, const Chain& chain, Output out)
{
    if (chain.empty()) {
        logError("Certificate Is Empty");
        return fail(NTE_NO_KEY);
    }
    const PCCERT_CONTEXT leaf = certificates.parsed(chain.front());
    if (!leaf) {
        logError("Failed creating leaf certificate");
        return fail(NTE_BAD_KEY);
    }
    const CertificateStore store = storeOf(certificates, chain);
    const CertificateChain built = buildChain(leaf, store.get());
    if (!built) {
        const DWORD reason = GetLastError();
        logError("Chain build failed");
        return fail(reason);
    }
    auto blobs = encodedCertificates(built.get());
    if (blobs.empty()) {
        logError("No certificates in PKCS#7 chain");
        return fail(NTE_BAD_KEY);
    }
    const CryptMessage message = openMessage(blobs);
    if (!message) return fail(GetLastError());
    return putMessage(message.get(), out);
}

} // namespace

Answer exportCertificateChain(const CspContext& context, Output out)
{
    const auto pairs = context.token().keyPairs();
    const CertificateSet certificates(context.token().certificates());
    const auto chains = collectChains(certificates, pairs);
    const auto found = chains.find(context.containerName);
    if (found == chains.end()) {
        *out.length = 0;
        return fail(NTE_NO_KEY);
    }
    return encodeChain(certificates, found->second, out);
}

} // namespace quelta
