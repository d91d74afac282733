// Registers the key storage provider with CNG, and removes the registration. Both need administrative rights, which are not
// checked. Only CNG's side is registered here: the installation writes CryptoAPI's side into the registry.
#pragma once

#include <windows.h>

#include <bcrypt.h>

namespace quelta {

// Access to bcrypt.dll. The tests have an implementation of their own. No member throws.
class CngLibrary {
public:
    // Returns null if the library cannot be loaded.
    virtual HMODULE load() const = 0;
    // Returns null if the library lacks the function.
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
