#pragma once

#include "ksp/ksp_calls.h"
#include "support/scenario.h"

#include "token/key_match.h"

namespace quelta::test {

// A public key as KSPExportKey writes it: the bytes as they stand, the exponent 65537.
Bytes cngBlob(const Bytes& key);

class KspScenario : public Scenario {
protected:
    // Silent, and required to succeed. The public key of a key pair gets a word, and so does what the token is given for it.
    void open();
    NCRYPT_KEY_HANDLE opened(const QueltaKeyPair& pair);
    NCRYPT_KEY_HANDLE created(LPCWSTR algorithm, DWORD legacyKeySpec = 0);
    NCRYPT_KEY_HANDLE imported(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE with = 0);
    // A symmetric key that this process holds in clear.
    NCRYPT_KEY_HANDLE clearKey(const Bytes& value);

    KspCalls ksp{recorder};
};

} // namespace quelta::test
