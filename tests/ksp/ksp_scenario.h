#pragma once

#include "ksp/ksp_calls.h"
#include "support/scenario.h"

namespace quelta::test {

class KspScenario : public Scenario {
protected:
    // Silent, and required to succeed.
    void open();
    NCRYPT_KEY_HANDLE opened(const QueltaKeyPair& pair);
    NCRYPT_KEY_HANDLE created(LPCWSTR algorithm, DWORD legacyKeySpec = 0);
    NCRYPT_KEY_HANDLE imported(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE with = 0);
    // A symmetric key that this process holds in clear.
    NCRYPT_KEY_HANDLE clearKey(const Bytes& value);

    KspCalls ksp{recorder};
};

} // namespace quelta::test
