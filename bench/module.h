// The built module, called at its exports: what stands between an application and a provider is Windows' own and not measured.
#pragma once

#include "base/key_storage_table.h"
#include "base/windows_objects.h"
#include "csp/entry_points.h"

#include <string>

namespace quelta::bench {

// The QueltaCSP.dll beside this program. Throws where it can't be loaded.
class Module {
public:
    Module();

    template <class Function>
    Function* function(const char* name) const
    {
        return reinterpret_cast<Function*>(address(name));
    }
    const KeyStorageFunctionTable& table() const { return *table_; }

private:
    void* address(const char* name) const;

    Library library_;
    KeyStorageFunctionTable* table_ = nullptr;
};

// Those that are measured or needed for it.
struct CryptoApiExports {
    explicit CryptoApiExports(const Module& module);

    decltype(CPAcquireContext)* acquireContext;
    decltype(CPReleaseContext)* releaseContext;
    decltype(CPGetProvParam)* getProvParam;
    decltype(CPSetProvParam)* setProvParam;
    decltype(CPGetUserKey)* getUserKey;
    decltype(CPGetKeyParam)* getKeyParam;
    decltype(CPDestroyKey)* destroyKey;
    decltype(CPCreateHash)* createHash;
    decltype(CPHashData)* hashData;
    decltype(CPGetHashParam)* getHashParam;
    decltype(CPDestroyHash)* destroyHash;
    decltype(CPSignHash)* signHash;
    decltype(CPVerifySignature)* verifySignature;
    decltype(CPEncrypt)* encrypt;
    decltype(CPDecrypt)* decrypt;
    decltype(CPGenRandom)* genRandom;
};

// Throw unless the call was done.
void expectTrue(BOOL answer, const char* call);
void expectDone(SECURITY_STATUS status, const char* call);

// The level that the module's log has meanwhile, in the registry of the machine.
class LogLevel {
public:
    explicit LogLevel(DWORD level);
    ~LogLevel();
    LogLevel(const LogLevel&) = delete;
    LogLevel& operator=(const LogLevel&) = delete;

private:
    // Nothing where none was set.
    DWORD before_ = 0;
    bool wasSet_;
};

} // namespace quelta::bench
