#include "store/token_keys.h"

#include "base/hex.h"
#include "base/token_error.h"
#include "common/bcrypt_calls.h"
#include "crypto/key_encoding.h"
#include "crypto/rsa.h"
#include "formats/certificate.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

constexpr std::size_t referenceSize = 20;
constexpr std::size_t longestLabel = sizeof(QueltaKeyPair::label) - 1;

std::string labelFor(const std::string& wanted, const KeyId& id)
{
    if (wanted.size() > longestLabel)
        throw TokenError(Result::badArgument, "a label has at most 127 bytes: choose a shorter one");
    return wanted.empty() ? "key " + toHex(ByteView(id).first(4)) : wanted;
}

void requireFits(ByteView der)
{
    if (der.size() > sizeof(QueltaCertificate::certificate))
        throw TokenError(Result::badArgument,
                         "a certificate of " + std::to_string(der.size()) + " bytes: the token holds up to 3072");
}

} // namespace

StoredKeyPair& addKeyPair(StoredToken& state, const PrivateKey& key, std::uint32_t usage, const std::string& label)
{
    if (usage < usageSigning || usage > usageBoth)
        throw TokenError(Result::badArgument, "a key pair signs, exchanges keys, or both");
    if (std::holds_alternative<EcPrivate>(key) && usage != usageSigning)
        throw TokenError(Result::badArgument, "keys on curves only sign: leave the usage away, or use an RSA key");
    if (const RsaPrivate* rsa = std::get_if<RsaPrivate>(&key)) requireConsistent(*rsa);
    StoredKeyPair pair;
    pair.id = newKeyId();
    pair.reference = randomBytes(referenceSize);
    pair.label = labelFor(label, pair.id);
    pair.usage = usage;
    pair.algorithm = algorithmOf(publicOf(key));
    pair.publicKey = shownPublicKey(publicOf(key));
    pair.privateKey = encodePrivateKey(key);
    return state.keyPairs.emplace_back(std::move(pair));
}

StoredCertificate& addCertificate(StoredToken& state, const StoredKeyPair& pair, ByteView der)
{
    requireFits(der);
    if (shownPublicKey(decodePublicKey(readCertificate(der).publicKeyInfo)) != pair.publicKey)
        throw TokenError(Result::badData, "the certificate is for another key");
    StoredCertificate certificate{toBytes(pair.id), {}, pair.reference, pair.label, toBytes(der)};
    const auto old = std::ranges::find_if(state.certificates,
                                          [&](const StoredCertificate& item) { return std::ranges::equal(item.keyId, pair.id); });
    if (old == state.certificates.end()) return state.certificates.emplace_back(std::move(certificate));
    return *old = std::move(certificate);
}

void addIssuer(StoredToken& state, ByteView der, ByteView chainOf)
{
    requireFits(der);
    readCertificate(der);
    if (std::ranges::any_of(state.certificates,
                            [&](const StoredCertificate& known) { return std::ranges::equal(known.der, der); }))
        return;
    state.certificates.push_back({{}, toBytes(chainOf), {}, {}, toBytes(der)});
}

StoredAesKey& addAesKey(StoredToken& state, ByteView value, std::uint32_t encryptionType, std::uint32_t usage,
                        const std::string& label)
{
    if (value.size() != 16 && value.size() != 24 && value.size() != 32)
        throw TokenError(Result::badArgument, "a symmetric key has 16, 24 or 32 bytes");
    if (encryptionType != encryptionAes128 && encryptionType != encryptionAes256 && encryptionType != encryptionTripleDes)
        throw TokenError(Result::badArgument, "no such kind of symmetric key: " + std::to_string(encryptionType));
    StoredAesKey key;
    key.id = newKeyId();
    key.reference = randomBytes(referenceSize);
    key.label = labelFor(label, key.id);
    key.usage = usage;
    key.encryptionType = encryptionType;
    key.value = toBytes(value);
    return state.aesKeys.emplace_back(std::move(key));
}

} // namespace quelta::softtoken
