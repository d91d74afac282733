// The key storage provider: as the system offers it (NCrypt), else QueltaCSP.dll itself.
#pragma once

#include "base/key_storage_table.h"
#include "base/windows_objects.h"
#include "tools/token/token_provider.h"

#include <filesystem>

namespace quelta::tools {

constexpr auto moduleName = L"QueltaCSP.dll";

class KeyStorage {
public:
    // Throws a Failure if neither the system nor this program can load the provider.
    KeyStorage();

    // Slots that the tool has no use for may be null.
    const KeyStorageFunctionTable& table() const { return *table_; }

private:
    Library module_;
    const KeyStorageFunctionTable* table_ = nullptr;
};

std::unique_ptr<TokenProvider> openKeyStorage();

// Whether the system knows the provider. Nothing is loaded and no token is needed. Always false under Wine, which loads none.
bool isKeyStorageRegistered();

// Where CryptoAPI's registration says that the module is, as Windows understands it; empty without one.
std::filesystem::path registeredModule();

} // namespace quelta::tools
