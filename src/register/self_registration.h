// Registers the key storage provider with CNG, and takes it back. Needs administrative rights, which are not checked for.
// CryptoAPI's side is registered in the registry by whoever installs the module.
#pragma once

#include <windows.h>

#include <bcrypt.h>

namespace quelta {

// bcrypt.dll as the registration finds it: its registration functions are looked up at run time.
class CngLibrary {
public:
    virtual ~CngLibrary() = default;
    virtual bool load() = 0;
    // Null if the library lacks the function.
    virtual FARPROC find(const char* function) = 0;
    virtual void free() = 0;
};

HRESULT registerProvider(CngLibrary& library);
HRESULT unregisterProvider(CngLibrary& library);

} // namespace quelta

extern "C" HRESULT WINAPI DllRegisterServer();
extern "C" HRESULT WINAPI DllUnregisterServer();
