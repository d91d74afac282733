// Owning types for what Windows hands out.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <wincrypt.h>

#include <memory>
#include <type_traits>
#include <utility>

namespace quelta {

template <class Handle, auto Release>
struct WindowsRelease {
    using pointer = Handle;
    void operator()(Handle handle) const { Release(handle); }
};
template <class Handle, auto Release>
using WindowsObject = std::unique_ptr<std::remove_pointer_t<Handle>, WindowsRelease<Handle, Release>>;

inline void closeCertificateStore(HCERTSTORE store)
{
    CertCloseStore(store, 0);
}

constexpr DWORD certificateEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

using CertificateContext = WindowsObject<PCCERT_CONTEXT, CertFreeCertificateContext>;
using CertificateStore = WindowsObject<HCERTSTORE, closeCertificateStore>;
using CertificateChain = WindowsObject<PCCERT_CHAIN_CONTEXT, CertFreeCertificateChain>;
using CryptMessage = WindowsObject<HCRYPTMSG, CryptMsgClose>;
using Library = WindowsObject<HMODULE, FreeLibrary>;
using ThreadpoolWork = WindowsObject<PTP_WORK, CloseThreadpoolWork>;

using File = WindowsObject<HANDLE, CloseHandle>;
// Null where the file could not be opened, so that it tests like the others.
inline File fileOf(HANDLE opened)
{
    return File(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
}

inline void closeBcryptAlgorithm(BCRYPT_ALG_HANDLE algorithm)
{
    BCryptCloseAlgorithmProvider(algorithm, 0);
}

using BcryptAlgorithm = WindowsObject<BCRYPT_ALG_HANDLE, closeBcryptAlgorithm>;
using BcryptKey = WindowsObject<BCRYPT_KEY_HANDLE, BCryptDestroyKey>;
using BcryptHash = WindowsObject<BCRYPT_HASH_HANDLE, BCryptDestroyHash>;

// CryptoAPI's handles are integers; 0 stands for none.
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
    // For a function that gives out a handle; this one must hold none.
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
