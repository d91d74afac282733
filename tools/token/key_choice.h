// Finds the key that the user means, and checks that its certificate allows the purpose.
#pragma once

#include "tools/cms/certificates.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

// Returns the index of the key that `wanted` names: a number of the list from 1 on, an identifier or its beginning, the holder's
// name, or a part of the subject that no other key has. Throws a Failure that lists the candidates.
std::size_t findKey(const std::vector<KeyEntry>& keys, const std::string& wanted);

struct Purpose {
    bool KeyEntry::*ability;
    const char* verb;
    // Bits of the certificate's key usage; 0 if the certificate does not matter.
    BYTE usage;
};

// Signing and encryption need a valid certificate that allows the use. Decryption must open old messages too.
constexpr Purpose signing{&KeyEntry::canSign, "sign", signatureUsage};
constexpr Purpose encryption{&KeyEntry::canDecrypt, "encrypt", encryptionUsage};
constexpr Purpose decryption{&KeyEntry::canDecrypt, "decrypt", 0};

// Returns the key for a purpose. `wanted` is as for findKey(). If it is empty, the first suitable key is used; keys with a good
// certificate come first. `force` accepts any certificate. Throws a Failure if no key will do.
KeyEntry chooseKey(std::vector<KeyEntry> keys, const Purpose& purpose, const std::string& wanted, bool force = false);

// Throws a Failure if the certificate is out of date or not for encryption.
void refuseForEncryption(const CERT_CONTEXT& certificate);

// Returns the short name of a key: the first eight digits of its identifier.
std::string shortName(const KeyEntry& key);

} // namespace quelta::tools
