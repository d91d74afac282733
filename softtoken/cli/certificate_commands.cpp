#include "base/hex.h"
#include "cli/commands.h"
#include "cli/select.h"
#include "crypto/key_encoding.h"
#include "crypto/primitives.h"
#include "formats/certificate.h"
#include "formats/certificate_maker.h"
#include "formats/distinguished_name.h"
#include "formats/key_file.h"
#include "store/token_keys.h"

#include <algorithm>
#include <iostream>

namespace quelta::softtoken::cli {

namespace {

// Issuers are found by their names: two chains on one token must not share them.
void requireUnknownIssuer(const TokenState& state, const std::string& name)
{
    const Bytes encoded = encodeName(name);
    for (const StoredCertificate& known : state.certificates)
        if (readCertificate(known.der).subject == encoded)
            throw TokenError(Result::badArgument,
                             "there is a certificate of " + name + " on the token already: choose another name");
}

ChainRequest requestFor(const StoredKeyPair& pair, const CertificateOptions& options)
{
    const std::string mark = toHex(randomBytes(4));
    ChainRequest request{
        publicOf(decodePrivateKey(pair.privateKey)), pair.usage, options.subject, options.issuer, options.root, options.days};
    if (request.subject.empty()) request.subject = commonName(pair.label) + ", O=Quelta software token";
    if (request.issuer.empty()) request.issuer = "CN=Quelta Software Token Issuing CA " + mark;
    if (request.root.empty()) request.root = "CN=Quelta Software Token Root CA " + mark;
    return request;
}

void make(const Folder& folder, const CertificateOptions& options)
{
    const auto before = requireToken(folder);
    const KeyId id = selectKeyPair(*before, options.key).id;
    const ChainRequest request = requestFor(selectKeyPair(*before, options.key), options);
    const Chain chain = makeChain(request);
    change(folder, [&](TokenState& state) {
        const StoredKeyPair* pair = findKeyPair(state, id);
        if (pair == nullptr) throw TokenError(Result::noSuchKey, "the key pair was deleted meanwhile");
        removeCertificatesOf(state, id);
        requireUnknownIssuer(state, request.issuer);
        requireUnknownIssuer(state, request.root);
        addCertificate(state, *pair, chain.leaf);
        addIssuer(state, chain.issuing, id);
        addIssuer(state, chain.root, id);
    });
    std::cout << nameText(readCertificate(chain.leaf).subject) << "\n";
}

// From the key's own certificate on, as far as the token has the issuers.
std::vector<Bytes> chainOf(const TokenState& state, const StoredKeyPair& pair)
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
    if (part == "chain") return chain;
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

void certificate(const Folder& folder, const CertificateOptions& options)
{
    if (options.exported.empty()) {
        make(folder, options);
        return;
    }
    const auto state = requireToken(folder);
    std::string text;
    for (const Bytes& der : selected(chainOf(*state, selectKeyPair(*state, options.key)), options.exported))
        text += pemOf("CERTIFICATE", der);
    give(options.out, text);
}

} // namespace quelta::softtoken::cli
