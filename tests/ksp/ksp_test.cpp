#include "ksp/ksp_test.h"

#include "token/key_match.h"
#include "token/record_fields.h"

namespace quelta::test {

KeyStorageFunctionTable& keyStorageTable()
{
    KeyStorageFunctionTable* table = nullptr;
    requireStatus(GetKeyStorageInterface(L"", &table, 0), "GetKeyStorageInterface");
    return *table;
}

std::wstring nameOf(const QueltaKeyPair& pair)
{
    const std::string name = keyName(pair);
    return {name.begin(), name.end()};
}

KspTest::KspTest()
{
    requireStatus(ksp.OpenProvider(&provider, L"", 0), "OpenProvider");
    forget();
}

KspTest::~KspTest()
{
    for (const auto key : keys_) ksp.FreeKey(provider, key);
    ksp.FreeProvider(provider);
}

NCRYPT_KEY_HANDLE KspTest::opened(const QueltaKeyPair& pair)
{
    NCRYPT_KEY_HANDLE key = 0;
    requireStatus(ksp.OpenKey(provider, &key, nameOf(pair).c_str(), 0, 0), "OpenKey");
    keys_.push_back(key);
    forget();
    return key;
}

} // namespace quelta::test
