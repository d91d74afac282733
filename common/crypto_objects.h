// Owning types for handles of bcrypt.dll and of CryptoAPI.
#pragma once

#include "base/windows_objects.h"

#include <bcrypt.h>

#include <utility>

namespace quelta {

inline void closeBcryptAlgorithm(BCRYPT_ALG_HANDLE algorithm)
{
    BCryptCloseAlgorithmProvider(algorithm, 0);
}

using BcryptAlgorithm = WindowsObject<BCRYPT_ALG_HANDLE, closeBcryptAlgorithm>;
using BcryptKey = WindowsObject<BCRYPT_KEY_HANDLE, BCryptDestroyKey>;
using BcryptHash = WindowsObject<BCRYPT_HASH_HANDLE, BCryptDestroyHash>;

// CryptoAPI's handles are integers; 0 means none.
template <auto Release>
class CryptObject {
public:
    CryptObject() = default;
    explicit CryptObject(ULONG_PTR handle) : handle_(handle) {}
    CryptObject(CryptObject&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
    CryptObject& operator=(CryptObject&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~CryptObject()
    {
        if (handle_) Release(handle_);
    }
    ULONG_PTR get() const { return handle_; }
    // Returns the address for a function that returns a handle. The object must be empty.
    ULONG_PTR* out() { return &handle_; }
    explicit operator bool() const { return handle_ != 0; }

private:
    ULONG_PTR handle_ = 0;
};

inline void releaseCryptContext(HCRYPTPROV context)
{
    CryptReleaseContext(context, 0);
}

using CryptContext = CryptObject<releaseCryptContext>;
using CryptKey = CryptObject<CryptDestroyKey>;
using CryptHash = CryptObject<CryptDestroyHash>;

} // namespace quelta
