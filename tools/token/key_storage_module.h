// The key storage provider: as the system offers it, else QueltaCSP.dll itself.
#pragma once

#include "base/key_storage_table.h"
#include "base/windows_objects.h"

#include <filesystem>

namespace quelta::tools {

class KeyStorage {
public:
    // Throws a Failure if neither the system nor this program can load the provider.
    KeyStorage();

    const KeyStorageFunctionTable& table() const { return *table_; }
    bool isFromSystem() const { return !module_; }

private:
    Library module_;
    const KeyStorageFunctionTable* table_ = nullptr;
};

// Looks where CryptoAPI's registration says, since a second copy in this process would ask for the PIN a second time; then beside
// this program and in the system's folder. Null if there is none that can be loaded.
Library loadModule();

// Where CryptoAPI's registration says that the module is; empty without one.
std::filesystem::path registeredModule();

constexpr auto moduleName = L"QueltaCSP.dll";

} // namespace quelta::tools
