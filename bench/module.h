// Calls the built module at its exports. Windows' own code between an application and a provider is not measured.
#pragma once

#include "base/key_storage_table.h"
#include "base/windows_objects.h"
#include "csp/entry_points.h"

#include <string>

namespace quelta::bench {

// Loads the QueltaCSP.dll beside this program. Throws if that fails.
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

// The exports that are measured, and the exports that a measurement needs.
struct CryptoApiExports {
    const Module& module;

    decltype(CPAcquireContext)* acquireContext = module.function<decltype(CPAcquireContext)>("CPAcquireContext");
    decltype(CPReleaseContext)* releaseContext = module.function<decltype(CPReleaseContext)>("CPReleaseContext");
    decltype(CPGetProvParam)* getProvParam = module.function<decltype(CPGetProvParam)>("CPGetProvParam");
    decltype(CPSetProvParam)* setProvParam = module.function<decltype(CPSetProvParam)>("CPSetProvParam");
    decltype(CPGetUserKey)* getUserKey = module.function<decltype(CPGetUserKey)>("CPGetUserKey");
    decltype(CPGetKeyParam)* getKeyParam = module.function<decltype(CPGetKeyParam)>("CPGetKeyParam");
    decltype(CPDestroyKey)* destroyKey = module.function<decltype(CPDestroyKey)>("CPDestroyKey");
    decltype(CPCreateHash)* createHash = module.function<decltype(CPCreateHash)>("CPCreateHash");
    decltype(CPHashData)* hashData = module.function<decltype(CPHashData)>("CPHashData");
    decltype(CPGetHashParam)* getHashParam = module.function<decltype(CPGetHashParam)>("CPGetHashParam");
    decltype(CPDestroyHash)* destroyHash = module.function<decltype(CPDestroyHash)>("CPDestroyHash");
    decltype(CPSignHash)* signHash = module.function<decltype(CPSignHash)>("CPSignHash");
    decltype(CPVerifySignature)* verifySignature = module.function<decltype(CPVerifySignature)>("CPVerifySignature");
    decltype(CPEncrypt)* encrypt = module.function<decltype(CPEncrypt)>("CPEncrypt");
    decltype(CPDecrypt)* decrypt = module.function<decltype(CPDecrypt)>("CPDecrypt");
    decltype(CPGenRandom)* genRandom = module.function<decltype(CPGenRandom)>("CPGenRandom");
};

// These throw if the call failed.
void expectTrue(BOOL answer, const char* call);
void expectDone(SECURITY_STATUS status, const char* call);

// Sets the level of the module's log in the registry of the machine while an object lives.
class LogLevel {
public:
    explicit LogLevel(DWORD level);
    ~LogLevel();
    LogLevel(const LogLevel&) = delete;
    LogLevel& operator=(const LogLevel&) = delete;

private:
    // Empty if the value was not set.
    DWORD before_ = 0;
    bool wasSet_;
};

} // namespace quelta::bench
