#pragma once

#include "support/guarded_buffer.h"
#include "support/module_test.h"

#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/provider.h"
#include "token/token_state.h"

#include <gmock/gmock.h>

#include <functional>

namespace quelta::test {

KeyStorageFunctionTable& keyStorageTable();

std::wstring nameOf(const QueltaKeyPair& pair);

// An open provider and what CNG does with it. Nothing of the opening is left in the log or among the token's calls, and no PIN is
// known.
class KspTest : public ModuleTest {
protected:
    KspTest();
    ~KspTest() override;

    // Lasts as long as the test, and leaves nothing in the log or among the token's calls.
    NCRYPT_KEY_HANDLE opened(const QueltaKeyPair& pair);

    KeyStorageFunctionTable& ksp = keyStorageTable();
    NCRYPT_PROV_HANDLE provider = 0;

private:
    std::vector<NCRYPT_KEY_HANDLE> keys_;
};

} // namespace quelta::test
