#include "crypto/primitives.h"

#include "base/text.h"
#include "crypto/bcrypt_objects.h"

#include <algorithm>
#include <limits>

namespace quelta::softtoken {

namespace {

constexpr ULONG mostAtOnce = 0x40000000;

// The device library numbers them from 1.
constexpr const KnownDigest* mechanisms[] = {&md5, &sha1, &sha256, &digestNamed("sha384"), &digestNamed("sha512")};

// Big-endian UTF-16 with a zero at the end.
Bytes bmpPassword(const std::string& password)
{
    Bytes bytes;
    for (const wchar_t unit : toWide(password) + L'\0') {
        bytes.push_back(static_cast<unsigned char>(unit >> 8));
        bytes.push_back(static_cast<unsigned char>(unit & 0xFF));
    }
    return bytes;
}

Bytes repeated(ByteView bytes, std::size_t block)
{
    Bytes result;
    if (bytes.empty()) return result;
    const std::size_t size = (bytes.size() + block - 1) / block * block;
    for (std::size_t i = 0; i < size; ++i) result.push_back(bytes[i % bytes.size()]);
    return result;
}

// Adds the block and one, all as big-endian numbers; what overflows is dropped.
void addBlock(std::span<unsigned char> part, ByteView block)
{
    unsigned int carry = 1;
    for (std::size_t i = part.size(); i-- > 0; carry >>= 8) {
        carry += part[i] + static_cast<unsigned int>(block[i]);
        part[i] = static_cast<unsigned char>(carry & 0xFF);
    }
}

} // namespace

void requireSuccess(NTSTATUS status, const char* what)
{
    if (status < 0) throw TokenError(std::string(what) + " was refused by the system, status " + std::to_string(status));
}

BCRYPT_ALG_HANDLE Providers::get(const wchar_t* algorithm, ProviderUse use)
{
    const std::lock_guard guard(mutex_);
    auto& found = opened_[{algorithm, use}];
    if (!found) {
        BCRYPT_ALG_HANDLE handle = nullptr;
        const ULONG flags = use == ProviderUse::hmac ? BCRYPT_ALG_HANDLE_HMAC_FLAG : 0;
        requireSuccess(BCryptOpenAlgorithmProvider(&handle, algorithm, nullptr, flags), "opening a cryptographic algorithm");
        found.reset(handle);
    }
    return found.get();
}

ULONG lengthOf(ByteView bytes)
{
    if (bytes.size() > std::numeric_limits<ULONG>::max()) throw TokenError(Result::badArgument, "too much data at once");
    return static_cast<ULONG>(bytes.size());
}

PUCHAR dataOf(ByteView bytes)
{
    return const_cast<PUCHAR>(bytes.data());
}

Bytes randomBytes(std::size_t count)
{
    Bytes bytes(count);
    if (bytes.empty()) return bytes;
    requireSuccess(BCryptGenRandom(nullptr, bytes.data(), lengthOf(bytes), BCRYPT_USE_SYSTEM_PREFERRED_RNG), "a random number");
    return bytes;
}

const KnownDigest* digestOfMechanism(int mechanism)
{
    return mechanism >= 1 && mechanism <= std::ssize(mechanisms) ? mechanisms[mechanism - 1] : nullptr;
}

BcryptHash startDigest(const KnownDigest& algorithm)
{
    BCRYPT_HASH_HANDLE hash = nullptr;
    requireSuccess(BCryptCreateHash(provider(algorithm.systemName), &hash, nullptr, 0, nullptr, 0, 0), "a digest");
    return BcryptHash(hash);
}

void updateDigest(const BcryptHash& hash, ByteView data)
{
    while (!data.empty()) {
        const ByteView piece = data.first(std::min<std::size_t>(data.size(), mostAtOnce));
        requireSuccess(BCryptHashData(hash.get(), dataOf(piece), lengthOf(piece), 0), "a digest");
        data = data.subspan(piece.size());
    }
}

Bytes finishDigest(const BcryptHash& hash, const KnownDigest& algorithm)
{
    Bytes value(algorithm.size);
    requireSuccess(BCryptFinishHash(hash.get(), value.data(), lengthOf(value), 0), "a digest");
    return value;
}

Bytes digest(const KnownDigest& algorithm, ByteView data)
{
    const BcryptHash hash = startDigest(algorithm);
    updateDigest(hash, data);
    return finishDigest(hash, algorithm);
}

Bytes hmac(const KnownDigest& algorithm, ByteView key, ByteView data)
{
    BCRYPT_HASH_HANDLE handle = nullptr;
    const BCRYPT_ALG_HANDLE owner = provider(algorithm.systemName, ProviderUse::hmac);
    requireSuccess(BCryptCreateHash(owner, &handle, nullptr, 0, dataOf(key), lengthOf(key), 0), "a message code");
    const BcryptHash hash(handle);
    updateDigest(hash, data);
    return finishDigest(hash, algorithm);
}

Bytes pbkdf2(const KnownDigest& algorithm, ByteView password, ByteView salt, std::uint64_t iterations, std::size_t size)
{
    Bytes key(size);
    requireSuccess(BCryptDeriveKeyPBKDF2(provider(algorithm.systemName, ProviderUse::hmac), dataOf(password), lengthOf(password),
                                         dataOf(salt), lengthOf(salt), iterations, key.data(), lengthOf(key), 0),
                   "deriving a key from a password");
    return key;
}

Bytes pkcs12Derive(const KnownDigest& algorithm, Purpose purpose, const std::string* password, ByteView salt,
                   std::uint64_t iterations, std::size_t size)
{
    const std::size_t block = algorithm.size > 32 ? 128 : 64;
    const Bytes diversifier(block, static_cast<unsigned char>(purpose));
    Bytes input = repeated(salt, block);
    if (password != nullptr) append(input, repeated(bmpPassword(*password), block));

    Bytes derived;
    while (derived.size() < size) {
        Bytes value = concat({diversifier, input});
        for (std::uint64_t round = 0; round < iterations; ++round) value = digest(algorithm, value);
        append(derived, value);
        Bytes addend;
        while (addend.size() < block) addend.push_back(value[addend.size() % value.size()]);
        for (std::size_t i = 0; i < input.size(); i += block) addBlock(std::span(input).subspan(i, block), addend);
    }
    derived.resize(size);
    return derived;
}

} // namespace quelta::softtoken
