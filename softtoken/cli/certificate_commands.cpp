#include "base/hex.h"
#include "cli/commands.h"
#include "cli/select.h"
#include "common/pem.h"
#include "crypto/key_encoding.h"
#include "formats/certificate.h"
#include "formats/certificate_maker.h"
#include "formats/distinguished_name.h"
#include "store/token_keys.h"

#include <algorithm>
#include <iostream>

namespace quelta::softtoken::cli {

namespace {

void make(const CommandLine& given)
{
    const auto before = requireToken(given.folder);
    const StoredKeyPair& chosen = selectKeyPair(*before, given.name);
    const std::string subject = given.subject.empty() ? commonName(chosen.label) + ", O=Quelta software token" : given.subject;
    const MadeChain chain = makeChain(publicOf(decodePrivateKey(chosen.privateKey)), chosen.usage, subject);
    change(given.folder, [&](StoredToken& token) {
        const StoredKeyPair* pair = findKeyPair(token, chosen.id);
        if (pair == nullptr) throw TokenError(Result::noSuchKey, "the key pair was deleted meanwhile");
        removeCertificatesOf(token, chosen.id);
        addCertificate(token, *pair, chain.leaf);
        addIssuer(token, chain.issuing, chosen.id);
        addIssuer(token, chain.root, chosen.id);
    });
    std::cout << nameText(readCertificate(chain.leaf).subject) << "\n";
}

// Returns the key's certificate and its issuers, as far as the token has them.
std::vector<Bytes> chainOf(const StoredToken& state, const StoredKeyPair& pair)
{
    const auto leaf = std::ranges::find_if(
        state.certificates, [&](const StoredCertificate& item) { return std::ranges::equal(item.keyId, pair.id); });
    if (leaf == state.certificates.end())
        throw TokenError(Result::noSuchKey,
                         "the key pair has no certificate: make one with: quelta-token cert " + toHex(pair.id));
    std::vector<Bytes> chain{leaf->der};
    for (;;) {
        const CertificateFields last = readCertificate(chain.back());
        if (last.issuer == last.subject) return chain;
        const auto issuer = std::ranges::find_if(state.certificates, [&](const StoredCertificate& item) {
            return readCertificate(item.der).subject == last.issuer && std::ranges::find(chain, item.der) == chain.end();
        });
        if (issuer == state.certificates.end()) return chain;
        chain.push_back(issuer->der);
    }
}

bool isRoot(const Bytes& der)
{
    const CertificateFields fields = readCertificate(der);
    return fields.issuer == fields.subject;
}

std::vector<Bytes> selected(const std::vector<Bytes>& chain, const std::string& part)
{
    const bool complete = isRoot(chain.back());
    if (part == "leaf") return {chain.front()};
    if (part == "root") {
        if (complete) return {chain.back()};
        throw TokenError(Result::noSuchKey, "the certificate of " + nameText(readCertificate(chain.back()).issuer) +
                                                " is not on the token: import it");
    }
    const auto end = chain.end() - (complete ? 1 : 0);
    if (chain.begin() + 1 >= end) throw TokenError(Result::noSuchKey, "no issuing certificate stands between leaf and root");
    return {chain.begin() + 1, end};
}

} // namespace

void certificate(const CommandLine& given)
{
    if (given.exported.empty()) return make(given);
    const auto token = requireToken(given.folder);
    std::string text;
    for (const Bytes& der : selected(chainOf(*token, selectKeyPair(*token, given.name)), given.exported))
        text += pemBlock("CERTIFICATE", der);
    give(given.out, text);
}

} // namespace quelta::softtoken::cli
