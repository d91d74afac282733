// Digests, ciphers and curves: the names that bcrypt.dll and CryptoAPI (ALG_ID) give them, and their object identifiers in the
// dotted form. Sizes are in bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quelta {

struct KnownDigest {
    std::string_view name;
    const wchar_t* systemName;
    std::uint32_t algId;
    std::size_t size;
    std::string_view oid;
    // Empty if the digest is not used with ECDSA.
    std::string_view ecdsaOid;
};

// The first one is the default.
constexpr KnownDigest knownDigests[] = {
    {"sha256", L"SHA256", 0x800C, 32, "2.16.840.1.101.3.4.2.1", "1.2.840.10045.4.3.2"},
    {"sha384", L"SHA384", 0x800D, 48, "2.16.840.1.101.3.4.2.2", "1.2.840.10045.4.3.3"},
    {"sha512", L"SHA512", 0x800E, 64, "2.16.840.1.101.3.4.2.3", "1.2.840.10045.4.3.4"},
    {"sha1", L"SHA1", 0x8004, 20, "1.3.14.3.2.26", "1.2.840.10045.4.1"},
    {"md5", L"MD5", 0x8003, 16, "1.2.840.113549.2.5", ""},
};

struct KnownCipher {
    std::string_view name;
    const wchar_t* systemName;
    std::string_view oid;
    std::size_t keySize;
    std::size_t blockSize;
};

// Ciphers in CBC mode. The strongest comes first.
constexpr KnownCipher knownCiphers[] = {
    {"AES-256", L"AES", "2.16.840.1.101.3.4.1.42", 32, 16},
    {"AES-192", L"AES", "2.16.840.1.101.3.4.1.22", 24, 16},
    {"AES-128", L"AES", "2.16.840.1.101.3.4.1.2", 16, 16},
    {"triple DES", L"3DES", "1.2.840.113549.3.7", 24, 8},
};

struct KnownCurve {
    std::string_view name;
    std::string_view oid;
    std::size_t bits;
    constexpr std::size_t coordinateSize() const { return (bits + 7) / 8; }
};

constexpr KnownCurve knownCurves[] = {
    {"p256", "1.2.840.10045.3.1.7", 256},
    {"p384", "1.3.132.0.34", 384},
    {"p521", "1.3.132.0.35", 521},
};

} // namespace quelta
