// Owners of what crypt32, advapi32 and bcrypt hand out.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <wincrypt.h>

#include <memory>
#include <utility>

namespace quelta {

constexpr DWORD certificateEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

struct FreeCertificate {
    void operator()(PCCERT_CONTEXT certificate) const { CertFreeCertificateContext(certificate); }
};
using Certificate = std::unique_ptr<const CERT_CONTEXT, FreeCertificate>;

struct CloseStore {
    void operator()(void* store) const { CertCloseStore(store, 0); }
};
using CertificateStore = std::unique_ptr<void, CloseStore>;

struct CloseMessage {
    void operator()(void* message) const { CryptMsgClose(message); }
};
using Message = std::unique_ptr<void, CloseMessage>;

struct FreeChain {
    void operator()(PCCERT_CHAIN_CONTEXT chain) const { CertFreeCertificateChain(chain); }
};
using Chain = std::unique_ptr<const CERT_CHAIN_CONTEXT, FreeChain>;

// CryptoAPI's handles are integers; 0 stands for none.
template <auto release>
class CryptHandle {
public:
    CryptHandle() = default;
    explicit CryptHandle(ULONG_PTR value) : value_(value) {}
    CryptHandle(CryptHandle&& other) noexcept : value_(std::exchange(other.value_, 0)) {}
    CryptHandle& operator=(CryptHandle&& other) noexcept
    {
        std::swap(value_, other.value_);
        return *this;
    }
    ~CryptHandle()
    {
        if (value_) release(value_);
    }
    ULONG_PTR get() const { return value_; }
    ULONG_PTR* out() { return &value_; }
    explicit operator bool() const { return value_ != 0; }

private:
    ULONG_PTR value_ = 0;
};

inline void releaseContext(HCRYPTPROV context)
{
    CryptReleaseContext(context, 0);
}
inline void destroyKey(HCRYPTKEY key)
{
    CryptDestroyKey(key);
}
inline void destroyHash(HCRYPTHASH hash)
{
    CryptDestroyHash(hash);
}

using CryptContext = CryptHandle<releaseContext>;
using CryptKey = CryptHandle<destroyKey>;
using CryptHash = CryptHandle<destroyHash>;

struct CloseAlgorithm {
    void operator()(void* algorithm) const { BCryptCloseAlgorithmProvider(algorithm, 0); }
};
using AlgorithmHandle = std::unique_ptr<void, CloseAlgorithm>;

struct DestroyKey {
    void operator()(void* key) const { BCryptDestroyKey(key); }
};
using BcryptKey = std::unique_ptr<void, DestroyKey>;

struct DestroyHash {
    void operator()(void* hash) const { BCryptDestroyHash(hash); }
};
using BcryptHash = std::unique_ptr<void, DestroyHash>;

} // namespace quelta
