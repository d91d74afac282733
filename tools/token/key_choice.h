// Which of the token's keys is meant, and whether its certificate is good for what is wanted.
#pragma once

#include "tools/token/token_provider.h"

#include <optional>

namespace quelta::tools {

enum class Validity { valid, expired, notYetValid };

Validity validityAt(const CERT_CONTEXT& certificate, const FILETIME& time);
// A certificate that says nothing of key usage may do everything. `usage` has bits of CERT_DIGITAL_SIGNATURE_KEY_USAGE and such,
// any of which will do.
bool mayBeUsedFor(const CERT_CONTEXT& certificate, BYTE usage);

constexpr BYTE signatureUsage = CERT_DIGITAL_SIGNATURE_KEY_USAGE | CERT_NON_REPUDIATION_KEY_USAGE;

// The index of the key that `wanted` means: a row of the list from 1 on, an identifier or its beginning, the holder's name, or a
// part of the subject that no other key has. A Failure lists the candidates.
std::size_t findKey(const std::vector<TokenKey>& keys, const std::string& wanted);

struct KeyWish {
    // As for findKey(); empty for the first that will do, one with a good certificate before others.
    std::string wanted = {};
    // Whatever the certificate says.
    bool force = false;
};

// Signing keeps to valid certificates that allow it; encryption takes the best there is; decryption opens old messages too.
TokenKey chooseSigningKey(std::vector<TokenKey> keys, const KeyWish& wish);
TokenKey chooseEncryptionKey(std::vector<TokenKey> keys, const KeyWish& wish);
TokenKey chooseDecryptionKey(std::vector<TokenKey> keys, const KeyWish& wish);

// What the user calls the key by: the beginning of its name, eight digits.
std::string shortName(const TokenKey& key);

} // namespace quelta::tools
