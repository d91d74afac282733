// QueltaCSP.dll, loaded as a key storage provider.
#pragma once

#include "base/key_storage_table.h"
#include "base/windows_objects.h"

namespace quelta::tools {

class KeyStorageModule {
public:
    // Looks beside this program and in the system's folder, then where CryptoAPI's registration says. Throws a Failure.
    KeyStorageModule();

    const KeyStorageFunctionTable& table() const { return *table_; }

private:
    Library module_;
    KeyStorageFunctionTable* table_ = nullptr;
};

} // namespace quelta::tools
