#include "crypto/rsa.h"

#include "base/wipe.h"
#include "crypto/bcrypt_objects.h"
#include "crypto/big_number.h"
#include "crypto/rsa_padding.h"
#include "token/device_records.h"

#include <cstring>

namespace quelta::softtoken {

namespace {

constexpr std::size_t mostModulusBytes = 1024;
constexpr std::size_t md5AndSha1Size = 36;

ByteView bytesOfHeader(const BCRYPT_RSAKEY_BLOB& header)
{
    return {reinterpret_cast<const unsigned char*>(&header), sizeof header};
}

Bytes publicBlob(const RsaPublic& key)
{
    BCRYPT_RSAKEY_BLOB header{};
    header.Magic = BCRYPT_RSAPUBLIC_MAGIC;
    header.BitLength = static_cast<ULONG>(bitsOf(key));
    header.cbPublicExp = lengthOf(key.exponent);
    header.cbModulus = lengthOf(key.modulus);
    Bytes blob = toBytes(bytesOfHeader(header));
    append(blob, key.exponent);
    append(blob, key.modulus);
    return blob;
}

Bytes padded(const Bytes& magnitude, std::size_t size)
{
    return bigEndian(numberFrom(magnitude), size);
}

Bytes privateBlob(const RsaPrivate& key)
{
    const std::size_t half = std::max(key.prime1.size(), key.prime2.size());
    BCRYPT_RSAKEY_BLOB header{};
    header.Magic = BCRYPT_RSAFULLPRIVATE_MAGIC;
    header.BitLength = static_cast<ULONG>(bitsOf(key.shown));
    header.cbPublicExp = lengthOf(key.shown.exponent);
    header.cbModulus = lengthOf(key.shown.modulus);
    header.cbPrime1 = static_cast<ULONG>(half);
    header.cbPrime2 = static_cast<ULONG>(half);
    Bytes blob = toBytes(bytesOfHeader(header));
    append(blob, key.shown.exponent);
    append(blob, key.shown.modulus);
    for (const Bytes* field : {&key.prime1, &key.prime2, &key.exponent1, &key.exponent2, &key.coefficient})
        append(blob, padded(*field, half));
    append(blob, padded(key.exponent, key.shown.modulus.size()));
    return blob;
}

BcryptKey imported(const wchar_t* kind, const Bytes& blob)
{
    BCRYPT_KEY_HANDLE key = nullptr;
    requireSuccess(BCryptImportKeyPair(provider(BCRYPT_RSA_ALGORITHM), nullptr, kind, &key, dataOf(blob), lengthOf(blob), 0),
                   "an RSA key");
    return BcryptKey(key);
}

void requireUsable(const RsaPublic& key)
{
    if (key.modulus.size() > mostModulusBytes || bitsOf(key) < 512 || key.exponent.size() > key.modulus.size())
        throw TokenError(Result::badData, "an RSA key of a size that can't be used");
}

// The fields in the order of the full private blob.
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
    const Modulus modulus(numberFrom(key.modulus));
    return bigEndian(modulus.power(numberFrom(block), numberFrom(key.exponent)), key.modulus.size());
}

// Modulo each prime, then put together (RFC 8017, 5.1.2).
Bytes privateOperation(const RsaPrivate& key, ByteView block)
{
    const Number input = numberFrom(block);
    if (compare(input, numberFrom(key.shown.modulus)) >= 0)
        throw TokenError(Result::badData, "the data is larger than the key's modulus");
    const Modulus prime1(numberFrom(key.prime1));
    const Modulus prime2(numberFrom(key.prime2));
    const Number part1 = prime1.power(remainder(input, prime1.value()), numberFrom(key.exponent1));
    const Number part2 = prime2.power(remainder(input, prime2.value()), numberFrom(key.exponent2));
    const Number step = prime1.times(prime1.subtract(part1, remainder(part2, prime1.value())), numberFrom(key.coefficient));
    return bigEndian(sum(part2, product(step, prime2.value())), key.shown.modulus.size());
}

const KnownDigest& digestToSign(ByteView digest)
{
    const KnownDigest* algorithm = digestOfSize(digest.size());
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
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(BCryptGenerateKeyPair(provider(BCRYPT_RSA_ALGORITHM), &handle, static_cast<ULONG>(bits), 0),
                   "making an RSA key");
    const BcryptKey key(handle);
    requireSuccess(BCryptFinalizeKeyPair(key.get(), 0), "making an RSA key");
    Bytes blob(sizeof(BCRYPT_RSAKEY_BLOB) + bits);
    ULONG size = 0;
    requireSuccess(BCryptExportKey(key.get(), nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, blob.data(), lengthOf(blob), &size, 0),
                   "making an RSA key");
    blob.resize(size);
    return keyOfBlob(blob);
}

void requireConsistent(const RsaPrivate& key)
{
    const Number prime1 = numberFrom(key.prime1);
    const Number prime2 = numberFrom(key.prime2);
    const Number secret = numberFrom(key.exponent);
    const Number one{1};
    const auto fits = [&](const Number& prime, const Bytes& exponent) {
        if (compare(prime, Number{3}) < 0 || (prime[0] & 1U) == 0) return false;
        const Number below = difference(prime, one);
        return compare(remainder(secret, below), numberFrom(exponent)) == 0 &&
               compare(remainder(product(secret, numberFrom(key.shown.exponent)), below), one) == 0;
    };
    const bool good = compare(product(prime1, prime2), numberFrom(key.shown.modulus)) == 0 && fits(prime1, key.exponent1) &&
                      fits(prime2, key.exponent2) && compare(numberFrom(key.coefficient), prime1) < 0 &&
                      compare(remainder(product(prime2, numberFrom(key.coefficient)), prime1), one) == 0;
    if (!good) throw TokenError(Result::badData, "the numbers of the RSA key do not belong together");
}

Bytes rsaSign(const RsaPrivate& key, ByteView digest)
{
    // The digest of old TLS versions stands without a DigestInfo, which Wine's bcrypt can't sign.
    if (digest.size() == md5AndSha1Size) return privateOperation(key, signaturePadded(digest, key.shown.modulus.size()));
    BCRYPT_PKCS1_PADDING_INFO padding{digestToSign(digest).systemName};
    const BcryptKey handle = imported(BCRYPT_RSAFULLPRIVATE_BLOB, privateBlob(key));
    Bytes signature(key.shown.modulus.size());
    ULONG size = 0;
    requireSuccess(BCryptSignHash(handle.get(), &padding, dataOf(digest), lengthOf(digest), signature.data(), lengthOf(signature),
                                  &size, BCRYPT_PAD_PKCS1),
                   "signing");
    signature.resize(size);
    return signature;
}

// Calculated here throughout: Wine's bcrypt refuses MD5 as well.
bool rsaVerify(const RsaPublic& key, ByteView digest, ByteView signature)
{
    requireUsable(key);
    if (signature.size() != bytesOf(key) || compare(numberFrom(signature), numberFrom(key.modulus)) >= 0) return false;
    const Bytes content = digest.size() == md5AndSha1Size ? toBytes(digest) : digestInfo(digestToSign(digest), digest);
    return equalInConstantTime(publicOperation(key, signature), signaturePadded(content, bytesOf(key)));
}

Bytes rsaEncrypt(const RsaPublic& key, RsaPadding padding, ByteView data)
{
    requireUsable(key);
    if (padding == RsaPadding::oaepSha1) return publicOperation(key, oaepPadded(sha1, data, bytesOf(key)));
    if (data.size() + pkcs1Overhead > bytesOf(key)) throw TokenError(Result::badArgument, "too much data for the key");
    const BcryptKey handle = imported(BCRYPT_RSAPUBLIC_BLOB, publicBlob(key));
    Bytes cipher(bytesOf(key));
    ULONG size = 0;
    requireSuccess(BCryptEncrypt(handle.get(), dataOf(data), lengthOf(data), nullptr, nullptr, 0, cipher.data(), lengthOf(cipher),
                                 &size, BCRYPT_PAD_PKCS1),
                   "encrypting");
    cipher.resize(size);
    return cipher;
}

std::optional<Bytes> rsaDecrypt(const RsaPrivate& key, ByteView cipher)
{
    if (cipher.size() != key.shown.modulus.size()) throw TokenError(Result::badArgument, "the data is not as long as the key");
    if (compare(numberFrom(cipher), numberFrom(key.shown.modulus)) >= 0) return std::nullopt;
    const Wiped<Bytes> block(privateOperation(key, cipher));
    for (const KnownDigest* algorithm : {&sha1, &sha256})
        if (auto plain = oaepUnpadded(*algorithm, *block)) return plain;
    return pkcs1Unpadded(*block);
}

} // namespace quelta::softtoken
