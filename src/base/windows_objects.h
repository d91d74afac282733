// Owning types for handles and objects that Windows returns: each is released when its owner is destroyed.
#pragma once

#include <windows.h>

#include <wincrypt.h>

#include <memory>
#include <type_traits>

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
// Takes the result of CreateFile. INVALID_HANDLE_VALUE becomes null, so that a failed call tests false.
inline File fileOf(HANDLE opened)
{
    return File(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
}

} // namespace quelta
