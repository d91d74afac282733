#include "cli/commands.h"
#include "cli/select.h"
#include "common/bcrypt_calls.h"
#include "common/hex.h"
#include "common/pem.h"
#include "crypto/key_encoding.h"
#include "crypto/primitives.h"
#include "formats/certificate.h"
#include "formats/key_file.h"
#include "store/files.h"
#include "store/token_keys.h"

#include <algorithm>
#include <iostream>

namespace quelta::softtoken::cli {

namespace {

constexpr std::uint32_t aesUsage = usageBoth;

std::uint32_t usageFor(const PrivateKey& key, const std::string& name)
{
    return usageNamed(name, std::holds_alternative<EcPrivate>(key) ? usageSigning : usageBoth);
}

void storeAesKey(const std::filesystem::path& folder, ByteView value, const std::string& label)
{
    KeyId id{};
    change(folder, [&](StoredToken& state) {
        requireFreeLabel(state, label);
        const std::uint32_t type = value.size() == 16 ? encryptionAes128 : encryptionAes256;
        id = addAesKey(state, value, type, aesUsage, label).id;
    });
    std::cout << toHex(id) << "\n";
}

KeyFile readFiles(const std::vector<std::string>& names)
{
    if (names.empty()) throw TokenError(Result::badArgument, "nothing to import: give files, or an AES key with --aes");
    KeyFile all;
    for (const std::string& name : names) {
        try {
            KeyFile file = readKeyFile(readFile(pathFrom(name)));
            all.keys.insert(all.keys.end(), file.keys.begin(), file.keys.end());
            all.certificates.insert(all.certificates.end(), file.certificates.begin(), file.certificates.end());
        } catch (const TokenError& error) {
            throw TokenError(error.result(), name + ": " + error.what());
        }
    }
    if (all.keys.empty() && all.certificates.empty())
        throw TokenError("neither a private key nor a certificate in there: give PEM or DER files");
    return all;
}

const StoredKeyPair* findByPublicKey(const StoredToken& state, const Bytes& publicKey)
{
    const auto found =
        std::ranges::find_if(state.keyPairs, [&](const StoredKeyPair& pair) { return pair.publicKey == publicKey; });
    return found == state.keyPairs.end() ? nullptr : &*found;
}

KeyId storeKey(StoredToken& token, const PrivateKey& key, const std::string& label)
{
    if (const StoredKeyPair* known = findByPublicKey(token, shownPublicKey(publicOf(key)))) return known->id;
    requireFreeLabel(token, label);
    return addKeyPair(token, key, usageFor(key, {}), label).id;
}

// An issuer's key may be of a kind that the token can't hold.
const StoredKeyPair* pairOfCertificate(const StoredToken& state, ByteView der)
{
    const CertificateFields fields = readCertificate(der);
    try {
        return findByPublicKey(state, shownPublicKey(decodePublicKey(fields.publicKeyInfo)));
    } catch (const TokenError&) {
        return nullptr;
    }
}

} // namespace

void keygen(const CommandLine& given)
{
    requireToken(given.folder);
    if (given.type == "aes128" || given.type == "aes256") {
        storeAesKey(given.folder, randomBytes(given.type == "aes128" ? 16 : 32), given.label);
        return;
    }
    const PrivateKey key = generateKey(keyAlgorithmNamed(given.type)->code);
    const std::uint32_t usage = usageFor(key, given.usage);
    KeyId id{};
    change(given.folder, [&](StoredToken& state) {
        requireFreeLabel(state, given.label);
        id = addKeyPair(state, key, usage, given.label).id;
    });
    std::cout << toHex(id) << "\n";
}

void importItems(const CommandLine& given)
{
    requireToken(given.folder);
    if (!given.aes.empty()) {
        const auto value = fromHex(given.aes);
        if (!value)
            throw TokenError(Result::badArgument, "the AES key is not hexadecimal: use pairs of the digits 0 to 9 and A to F");
        storeAesKey(given.folder, *value, given.label);
        return;
    }
    const KeyFile file = readFiles(given.files);
    std::vector<KeyId> ids;
    change(given.folder, [&](StoredToken& state) {
        for (const PrivateKey& key : file.keys) ids.push_back(storeKey(state, key, given.label));
        for (const Bytes& der : file.certificates) {
            if (const StoredKeyPair* pair = pairOfCertificate(state, der))
                addCertificate(state, *pair, der);
            else
                addIssuer(state, der, {});
        }
    });
    for (const KeyId& id : ids) std::cout << toHex(id) << "\n";
    std::cerr << "imported: key pairs " << file.keys.size() << ", certificates " << file.certificates.size() << "\n";
}

void publicKey(const CommandLine& given)
{
    const auto state = requireToken(given.folder);
    const PrivateKey pair = decodePrivateKey(selectKeyPair(*state, given.name).privateKey);
    give(given.out, pemBlock("PUBLIC KEY", encodePublicKey(publicOf(pair))));
}

void remove(const CommandLine& given)
{
    change(given.folder, [&](StoredToken& state) {
        std::size_t removed =
            std::erase_if(state.aesKeys, [&](const StoredAesKey& key) { return isNamed(key.id, key.label, given.name); });
        removed += std::erase_if(state.certificates, [&](const StoredCertificate& certificate) {
            return toHex(digestOf(sha1, certificate.der)) == given.name;
        });
        const auto pair = std::ranges::find_if(
            state.keyPairs, [&](const StoredKeyPair& item) { return isNamed(item.id, item.label, given.name); });
        if (removed == 0 && pair == state.keyPairs.end())
            throw TokenError(Result::noSuchKey,
                             "no key and no certificate " + given.name + " on the token: see: quelta-token list");
        if (pair != state.keyPairs.end()) removeKeyPair(state, selectKeyPair(state, given.name).id);
    });
}

} // namespace quelta::softtoken::cli
