#include "crypto/rsa.h"

#include "base/wipe.h"
#include "common/bcrypt_calls.h"
#include "crypto/big_number.h"
#include "crypto/rsa_padding.h"
#include "token/device_records.h"

#include <cstring>

namespace quelta::softtoken {

namespace {

constexpr std::size_t mostModulusBytes = 1024;
constexpr std::size_t md5AndSha1Size = 36;

Bytes privateBlob(const RsaPrivate& key)
{
    const std::size_t half = std::max(key.prime1.size(), key.prime2.size());
    BCRYPT_RSAKEY_BLOB header{};
    header.Magic = BCRYPT_RSAFULLPRIVATE_MAGIC;
    header.BitLength = static_cast<ULONG>(bitsOf(key.shown));
    header.cbPublicExp = bcryptSize(key.shown.exponent);
    header.cbModulus = bcryptSize(key.shown.modulus);
    header.cbPrime1 = static_cast<ULONG>(half);
    header.cbPrime2 = static_cast<ULONG>(half);
    Bytes blob =
        concat({{reinterpret_cast<const unsigned char*>(&header), sizeof header}, key.shown.exponent, key.shown.modulus});
    for (const Bytes* field : {&key.prime1, &key.prime2, &key.exponent1, &key.exponent2, &key.coefficient})
        append(blob, bigEndian(numberFrom(*field), half));
    append(blob, bigEndian(numberFrom(key.exponent), key.shown.modulus.size()));
    return blob;
}

// The algorithm's handle must outlive the key's.
struct SystemKey {
    BcryptAlgorithm algorithm = openAlgorithm(BCRYPT_RSA_ALGORITHM);
    BcryptKey key;
};

void requireUsable(const RsaPublic& key)
{
    if (key.modulus.size() > mostModulusBytes || bitsOf(key) < 512 || key.exponent.size() > key.modulus.size())
        throw TokenError(Result::badData, "an RSA key of a size that can't be used");
}

// The fields stand in the order of the full private blob.
RsaPrivate keyOfBlob(ByteView blob)
{
    BCRYPT_RSAKEY_BLOB header{};
    if (blob.size() < sizeof header) throw TokenError("the system gave a damaged RSA key");
    std::memcpy(&header, blob.data(), sizeof header);
    std::size_t position = sizeof header;
    const auto take = [&](std::size_t size) {
        if (size > blob.size() - position) throw TokenError("the system gave a damaged RSA key");
        const ByteView field = blob.subspan(position, size);
        position += size;
        return toBytes(field);
    };
    RsaPrivate key;
    key.shown.exponent = take(header.cbPublicExp);
    key.shown.modulus = take(header.cbModulus);
    key.prime1 = take(header.cbPrime1);
    key.prime2 = take(header.cbPrime2);
    key.exponent1 = take(header.cbPrime1);
    key.exponent2 = take(header.cbPrime2);
    key.coefficient = take(header.cbPrime1);
    key.exponent = take(header.cbModulus);
    return key;
}

Bytes publicOperation(const RsaPublic& key, ByteView block)
{
    return bigEndian(powm(numberFrom(block), numberFrom(key.exponent), numberFrom(key.modulus)), key.modulus.size());
}

// Computes modulo each prime and combines the results (RFC 8017, 5.1.2).
Bytes privateOperation(const RsaPrivate& key, ByteView block)
{
    const Number input = numberFrom(block);
    const Number prime1 = numberFrom(key.prime1);
    const Number prime2 = numberFrom(key.prime2);
    const Number part1 = powm(input % prime1, numberFrom(key.exponent1), prime1);
    const Number part2 = powm(input % prime2, numberFrom(key.exponent2), prime2);
    const Number step = reduced((part1 - part2) * numberFrom(key.coefficient), prime1);
    return bigEndian(part2 + step * prime2, key.shown.modulus.size());
}

const KnownDigest& digestToSign(ByteView digest)
{
    const KnownDigest* algorithm = findRow(knownDigests, &KnownDigest::size, digest.size());
    if (algorithm == nullptr) throw TokenError(Result::badArgument, "no digest has " + std::to_string(digest.size()) + " bytes");
    return *algorithm;
}

} // namespace

std::size_t bitsOf(const RsaPublic& key)
{
    return bitLength(numberFrom(key.modulus));
}

std::size_t bytesOf(const RsaPublic& key)
{
    return (bitsOf(key) + 7) / 8;
}

RsaPrivate generateRsaKey(std::size_t bits)
{
    constexpr const char* step = "making an RSA key";
    SystemKey made;
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(BCryptGenerateKeyPair(made.algorithm.get(), &handle, static_cast<ULONG>(bits), 0), step);
    made.key.reset(handle);
    requireSuccess(BCryptFinalizeKeyPair(handle, 0), step);
    Bytes blob(sizeof(BCRYPT_RSAKEY_BLOB) + bits);
    ULONG size = 0;
    requireSuccess(BCryptExportKey(handle, nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, blob.data(), bcryptSize(blob), &size, 0), step);
    blob.resize(size);
    return keyOfBlob(blob);
}

void requireConsistent(const RsaPrivate& key)
{
    const Number prime1 = numberFrom(key.prime1);
    const Number prime2 = numberFrom(key.prime2);
    const Number secret = numberFrom(key.exponent);
    const auto fits = [&](const Number& prime, const Bytes& exponent) {
        return prime >= 3 && secret % (prime - 1) == numberFrom(exponent) &&
               secret * numberFrom(key.shown.exponent) % (prime - 1) == 1;
    };
    const bool good = prime1 * prime2 == numberFrom(key.shown.modulus) && fits(prime1, key.exponent1) &&
                      fits(prime2, key.exponent2) && numberFrom(key.coefficient) < prime1 &&
                      prime2 * numberFrom(key.coefficient) % prime1 == 1;
    if (!good) throw TokenError(Result::badData, "the numbers of the RSA key do not belong together");
}

Bytes rsaSign(const RsaPrivate& key, ByteView digest)
{
    // Old TLS versions sign their digest without a DigestInfo. Wine's bcrypt can't do that.
    if (digest.size() == md5AndSha1Size) return privateOperation(key, signaturePadded(digest, key.shown.modulus.size()));
    BCRYPT_PKCS1_PADDING_INFO padding{digestToSign(digest).systemName};
    const Bytes blob = privateBlob(key);
    SystemKey system;
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(BCryptImportKeyPair(system.algorithm.get(), nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, &handle, bcryptInput(blob),
                                       bcryptSize(blob), 0),
                   "reading an RSA key");
    system.key.reset(handle);
    Bytes signature(key.shown.modulus.size());
    ULONG size = 0;
    requireSuccess(BCryptSignHash(handle, &padding, bcryptInput(digest), bcryptSize(digest), signature.data(),
                                  bcryptSize(signature), &size, BCRYPT_PAD_PKCS1),
                   "signing");
    signature.resize(size);
    return signature;
}

// Verifies without bcrypt for every digest, since Wine's bcrypt refuses MD5 as well.
bool rsaVerify(const RsaPublic& key, ByteView digest, ByteView signature)
{
    requireUsable(key);
    if (signature.size() != bytesOf(key) || numberFrom(signature) >= numberFrom(key.modulus)) return false;
    const Bytes content = digest.size() == md5AndSha1Size ? toBytes(digest) : digestInfo(digestToSign(digest), digest);
    return publicOperation(key, signature) == signaturePadded(content, bytesOf(key));
}

Bytes rsaEncrypt(const RsaPublic& key, RsaPadding padding, ByteView data)
{
    requireUsable(key);
    const Wiped<Bytes> block(padding == RsaPadding::oaepSha1 ? oaepPadded(sha1, data, bytesOf(key))
                                                             : encryptionPadded(data, bytesOf(key)));
    return publicOperation(key, *block);
}

std::optional<Bytes> rsaDecrypt(const RsaPrivate& key, ByteView cipher)
{
    if (cipher.size() != key.shown.modulus.size()) throw TokenError(Result::badArgument, "the data is not as long as the key");
    if (numberFrom(cipher) >= numberFrom(key.shown.modulus)) return std::nullopt;
    const Wiped<Bytes> block(privateOperation(key, cipher));
    for (const KnownDigest* algorithm : {&sha1, &sha256})
        if (auto plain = oaepUnpadded(*algorithm, *block)) return plain;
    return pkcs1Unpadded(*block);
}

} // namespace quelta::softtoken
