// The records of QueltaDSCLibrary.dll: the binary contract with the maker's library. All integers are little-endian. Do not trust
// lengths: read fields through token/record_fields.h, which checks each length against its field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quelta {

enum EncryptionType : int {};
enum PaddingMode : int { paddingPkcs1 = 1, paddingOaep = 4 };

// Key usage of a key pair: usageBoth is the sum of the other two.
constexpr std::uint32_t usageSigning = 1;
constexpr std::uint32_t usageKeyExchange = 2;
constexpr std::uint32_t usageBoth = 3;

// Algorithm codes of key pairs; 0 stands for "not chosen".
constexpr std::uint32_t algorithmRsa1024 = 1;
constexpr std::uint32_t algorithmRsa2048 = 2;
constexpr std::uint32_t algorithmRsa3072 = 3;
constexpr std::uint32_t algorithmRsa4096 = 4;
constexpr std::uint32_t algorithmP256 = 5;
constexpr std::uint32_t algorithmP384 = 6;
constexpr std::uint32_t algorithmP521 = 7;

// Encryption-type codes of symmetric keys.
constexpr std::uint32_t encryptionAes128 = 8;
constexpr std::uint32_t encryptionAes256 = 10;
constexpr std::uint32_t encryptionTripleDes = 11;

// Results that callers handle separately. Any other non-zero result is an ordinary failure.
constexpr int resultClockMismatch = 48;
constexpr int resultSignOnExpired = 49;

constexpr std::size_t keyIdSize = 16;

struct QueltaKeyPair {
    std::uint32_t unread0;
    unsigned char keyId[keyIdSize];
    unsigned char publicKey[1024];
    std::int32_t publicKeyLength;
    unsigned char keyReference[128];
    std::int32_t keyReferenceLength;
    char label[128];
    std::uint32_t unread1;
    std::uint32_t usage;
    std::uint32_t algorithm;
    std::uint8_t hardware;
    std::uint8_t padding[3];
};

static_assert(sizeof(QueltaKeyPair) == 1324);
static_assert(offsetof(QueltaKeyPair, keyId) == 4);
static_assert(offsetof(QueltaKeyPair, publicKey) == 20);
static_assert(offsetof(QueltaKeyPair, publicKeyLength) == 1044);
static_assert(offsetof(QueltaKeyPair, keyReference) == 1048);
static_assert(offsetof(QueltaKeyPair, keyReferenceLength) == 1176);
static_assert(offsetof(QueltaKeyPair, label) == 1180);
static_assert(offsetof(QueltaKeyPair, usage) == 1312);
static_assert(offsetof(QueltaKeyPair, algorithm) == 1316);
static_assert(offsetof(QueltaKeyPair, hardware) == 1320);

// An import request carries the key's identifier in `keyId`. In a listed record `keyId` is not read.
struct QueltaCertificate {
    std::uint32_t unread0;
    unsigned char keyId[keyIdSize];
    unsigned char certificate[3072];
    std::int32_t certificateLength;
    unsigned char keyReference[128];
    std::int32_t keyReferenceLength;
    char label[152];
};

static_assert(sizeof(QueltaCertificate) == 3380);
static_assert(offsetof(QueltaCertificate, keyId) == 4);
static_assert(offsetof(QueltaCertificate, certificate) == 20);
static_assert(offsetof(QueltaCertificate, certificateLength) == 3092);
static_assert(offsetof(QueltaCertificate, keyReference) == 3096);
static_assert(offsetof(QueltaCertificate, keyReferenceLength) == 3224);
static_assert(offsetof(QueltaCertificate, label) == 3228);

struct QueltaSymmetricKey {
    std::uint32_t unread0;
    unsigned char keyId[keyIdSize];
    unsigned char keyReference[128];
    std::int32_t keyReferenceLength;
    char label[128];
    unsigned char keyValue[128];
    std::int32_t keyValueLength;
    std::uint32_t usage;
    std::uint32_t encryptionType;
    std::uint8_t flag;
    std::uint8_t padding[3];
    unsigned char unread1[8];
};

static_assert(sizeof(QueltaSymmetricKey) == 432);
static_assert(offsetof(QueltaSymmetricKey, keyId) == 4);
static_assert(offsetof(QueltaSymmetricKey, keyReference) == 20);
static_assert(offsetof(QueltaSymmetricKey, keyReferenceLength) == 148);
static_assert(offsetof(QueltaSymmetricKey, label) == 152);
static_assert(offsetof(QueltaSymmetricKey, keyValue) == 280);
static_assert(offsetof(QueltaSymmetricKey, keyValueLength) == 408);
static_assert(offsetof(QueltaSymmetricKey, usage) == 412);
static_assert(offsetof(QueltaSymmetricKey, encryptionType) == 416);
static_assert(offsetof(QueltaSymmetricKey, flag) == 420);

// A std::string takes 32 bytes in MSVC (release) and in libstdc++, so the offsets agree. The insides of a string differ.
struct TokenInfo {
    std::string serialNumber;
    std::string otherTexts[6];
    std::int32_t unread0[3];
    std::int32_t singleSignOnEnabled;
    std::int32_t singleSignOnOpen;
    std::int32_t unread1;
    std::string lastTexts[2];
};

struct CertificateDetails {
    std::string texts[8];
    std::vector<unsigned char> publicKey;
};

#if defined(_ITERATOR_DEBUG_LEVEL) && _ITERATOR_DEBUG_LEVEL != 0
#error "The device library's strings and vectors are those of the release runtime: build without iterator debugging"
#endif

#ifdef _WIN64
static_assert(sizeof(TokenInfo) == 312);
static_assert(offsetof(TokenInfo, singleSignOnEnabled) == 236);
static_assert(offsetof(TokenInfo, singleSignOnOpen) == 240);
static_assert(sizeof(CertificateDetails) == 280);
static_assert(offsetof(CertificateDetails, publicKey) == 256);
#endif

} // namespace quelta
