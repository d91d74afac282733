// Which of the token's keys is meant, and whether its certificate is good for what is wanted.
#pragma once

#include "tools/cms/certificates.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

// The index of the key that `wanted` means: a row of the list from 1 on, an identifier or its beginning, the holder's name, or a
// part of the subject that no other key has. A Failure lists the candidates.
std::size_t findKey(const std::vector<KeyEntry>& keys, const std::string& wanted);

struct Purpose {
    bool KeyEntry::*ability;
    const char* verb;
    // Bits of the certificate's key usage; 0 if the certificate is not looked at.
    BYTE usage;
};

// Signing and encryption keep to valid certificates that allow it; decryption opens old messages too.
constexpr Purpose signing{&KeyEntry::canSign, "sign", signatureUsage};
constexpr Purpose encryption{&KeyEntry::canDecrypt, "encrypt", encryptionUsage};
constexpr Purpose decryption{&KeyEntry::canDecrypt, "decrypt", 0};

// `wanted` is as for findKey(); empty for the first that will do, one with a good certificate before others. With `force` a
// certificate is taken whatever it says.
KeyEntry chooseKey(std::vector<KeyEntry> keys, const Purpose& purpose, const std::string& wanted, bool force = false);

// Throws a Failure if the certificate is out of date or not for encryption.
void refuseForEncryption(const CERT_CONTEXT& certificate);

// What the user calls the key by: the beginning of its name, eight digits.
std::string shortName(const KeyEntry& key);

} // namespace quelta::tools
