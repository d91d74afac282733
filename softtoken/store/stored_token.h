// The state of a software token. The private keys are stored in clear. This token protects nothing.
#pragma once

#include "base/bytes.h"
#include "base/token_error.h"
#include "token/device_records.h"

#include <array>
#include <cstdint>
#include <expected>
#include <string>
#include <vector>

namespace quelta::softtoken {

using KeyId = std::array<unsigned char, keyIdSize>;

struct StoredKeyPair {
    KeyId id{};
    Bytes reference;
    std::string label;
    std::uint32_t usage = 0;
    std::uint32_t algorithm = 0;
    Bytes publicKey;  // as the device library shows it
    Bytes privateKey; // PKCS#8
};

struct StoredCertificate {
    Bytes keyId;   // of the key pair it certifies; empty for an issuer's
    Bytes chainOf; // identifier of the key pair with which the certificate is deleted; empty: never
    Bytes reference;
    std::string label;
    Bytes der;
};

struct StoredAesKey {
    KeyId id{};
    Bytes reference;
    std::string label;
    std::uint32_t usage = 0;
    std::uint32_t encryptionType = 0;
    Bytes value;
};

constexpr std::size_t longestPin = 63;

struct StoredPin {
    Bytes salt; // as long as the longest PIN
    Bytes hash;
    int attempts = 0;
    int remaining = 0;
};

struct StoredToken {
    std::string serial;
    std::string label;
    bool plugged = true;
    bool clockMismatch = false;
    bool singleSignOnEnabled = false;
    bool singleSignOnOpen = false;
    StoredPin pin;
    // All wrong PINs that cost an attempt. Nothing resets this number.
    std::uint64_t wrongPins = 0;
    std::vector<StoredKeyPair> keyPairs;
    std::vector<StoredCertificate> certificates;
    std::vector<StoredAesKey> aesKeys;
};

std::string toJson(const StoredToken& state);
// Fails unless toJson wrote the text. A text that is no JSON causes no exception, so the first poll of such a token throws
// nothing.
std::expected<StoredToken, TokenError> fromJson(const std::string& text);

KeyId newKeyId();
KeyId keyIdFrom(ByteView bytes);

StoredKeyPair* findKeyPair(StoredToken& state, ByteView id);
const StoredKeyPair* findKeyPair(const StoredToken& state, ByteView id);
// Deletes the pair, its certificates, and the issuers' certificates that were made for it.
void removeKeyPair(StoredToken& state, const KeyId& id);
void removeCertificatesOf(StoredToken& state, const KeyId& id);

} // namespace quelta::softtoken
