// Which of the token's keys is meant, and whether its certificate is good for what is wanted.
#pragma once

#include "tools/token/token_provider.h"

namespace quelta::tools {

// The index of the key that `wanted` means: a row of the list from 1 on, an identifier or its beginning, the holder's name, or a
// part of the subject that no other key has. A Failure lists the candidates.
std::size_t findKey(const std::vector<KeyEntry>& keys, const std::string& wanted);

struct KeyWish {
    // As for findKey(); empty for the first that will do, one with a good certificate before others.
    std::string wanted = {};
    // Whatever the certificate says.
    bool force = false;
};

// Signing and encryption keep to valid certificates that allow it; decryption opens old messages too.
KeyEntry chooseSigningKey(std::vector<KeyEntry> keys, const KeyWish& wish);
KeyEntry chooseEncryptionKey(std::vector<KeyEntry> keys, const KeyWish& wish);
KeyEntry chooseDecryptionKey(std::vector<KeyEntry> keys, const KeyWish& wish);

// Throws a Failure if the certificate is out of date or not for encryption.
void refuseForEncryption(const CERT_CONTEXT& certificate);

// What the user calls the key by: the beginning of its name, eight digits.
std::string shortName(const KeyEntry& key);

} // namespace quelta::tools
