// Registers the key storage provider with CNG, and removes the registration. This needs administrative rights, which are not
// checked for. Whoever installs the module registers CryptoAPI's side in the registry.
#pragma once

#include <windows.h>

#include <bcrypt.h>

namespace quelta {

// How bcrypt.dll is reached; the tests have their own. Nothing here throws.
class CngLibrary {
public:
    // Null if the library can't be loaded.
    virtual HMODULE load() const = 0;
    // Null if the library lacks the function.
    virtual FARPROC find(HMODULE library, const char* function) const = 0;
    virtual void free(HMODULE library) const = 0;

protected:
    ~CngLibrary() = default;
};

HRESULT registerProvider(const CngLibrary& cng) noexcept;
HRESULT unregisterProvider(const CngLibrary& cng) noexcept;

} // namespace quelta

extern "C" HRESULT WINAPI DllRegisterServer();
extern "C" HRESULT WINAPI DllUnregisterServer();
