// QueltaCSP.dll, loaded as a key storage provider.
#pragma once

#include "key_storage_table.h"

#include <memory>

namespace quelta {

class KeyStorageModule {
public:
    // Looks beside this program and in the system's folder, then where CryptoAPI's registration says. Throws a Failure.
    KeyStorageModule();

    const KeyStorageTable& table() const { return *table_; }

private:
    struct FreeModule {
        using pointer = HMODULE;
        void operator()(HMODULE module) const { FreeLibrary(module); }
    };

    std::unique_ptr<HMODULE, FreeModule> module_;
    const KeyStorageTable* table_ = nullptr;
};

} // namespace quelta
