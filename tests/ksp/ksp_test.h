#pragma once

#include "support/guarded_buffer.h"
#include "support/module_test.h"

#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/provider.h"
#include "token/token_state.h"

#include <gmock/gmock.h>

#include <functional>
#include <initializer_list>
#include <memory>

namespace quelta::test {

KeyStorageFunctionTable& keyStorageTable();

using PropertyCall = std::function<SECURITY_STATUS(PBYTE output, DWORD room, DWORD* result)>;

// Asks for the size, then with short buffers, one that fits and a larger one. Each ends at an inaccessible page.
void expectGives(const Bytes& value, const PropertyCall& call, std::source_location where = std::source_location::current());

std::wstring nameOf(const QueltaKeyPair& pair);
Bytes publicKeyBytes(const QueltaKeyPair& pair);
// As the token is to be given it: a modulus in DER, an EC key as it stands.
Bytes publicKeyForToken(const QueltaKeyPair& pair);

// An open provider and what CNG does with it. Nothing of the opening is left in the log or among the token's calls, and no PIN is
// known.
class KspTest : public ModuleTest {
protected:
    KspTest();
    ~KspTest() override;

    // These last as long as the test, and leave nothing in the log or among the token's calls.
    NCRYPT_KEY_HANDLE opened(const QueltaKeyPair& pair);
    NCRYPT_KEY_HANDLE created(LPCWSTR algorithm, DWORD legacyKeySpec = 0);
    NCRYPT_KEY_HANDLE imported(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE importKey = 0);
    // A symmetric key that this process holds in clear.
    NCRYPT_KEY_HANDLE clearKey(const Bytes& value);
    NCRYPT_KEY_HANDLE owned(NCRYPT_KEY_HANDLE key);

    SECURITY_STATUS import(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE& key, NCRYPT_KEY_HANDLE importKey = 0);
    SECURITY_STATUS setProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name, const Bytes& value);
    DWORD dwordProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name);
    std::wstring textProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name);

    KeyStorageFunctionTable& ksp = keyStorageTable();
    NCRYPT_PROV_HANDLE provider = 0;

private:
    std::vector<NCRYPT_KEY_HANDLE> keys_;
};

} // namespace quelta::test
