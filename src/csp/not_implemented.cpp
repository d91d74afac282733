// Entry points that have no work behind them yet. They stand in the export table because advapi32 refuses a provider that lacks one.
#include "csp/entry.h"
#include "csp/entry_points.h"

using namespace quelta;

namespace {

Answer notImplemented()
{
    return fail(ERROR_CALL_NOT_IMPLEMENTED);
}

} // namespace

BOOL WINAPI CPImportKey(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*)
{
    return entryPoint("CPImportKey", notImplemented);
}

BOOL WINAPI CPExportKey(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*)
{
    return entryPoint("CPExportKey", notImplemented);
}

BOOL WINAPI CPEncrypt(HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, BYTE*, DWORD*, DWORD)
{
    return entryPoint("CPEncrypt", notImplemented);
}

BOOL WINAPI CPDecrypt(HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, BYTE*, DWORD*)
{
    return entryPoint("CPDecrypt", notImplemented);
}

BOOL WINAPI CPGenRandom(HCRYPTPROV, DWORD, BYTE*)
{
    return entryPoint("CPGenRandom", notImplemented);
}

BOOL WINAPI CPDeriveKey(HCRYPTPROV, ALG_ID, HCRYPTHASH, DWORD, HCRYPTKEY*)
{
    return entryPoint("CPDeriveKey", notImplemented);
}

extern "C" LONG WINAPI GetKeyStorageInterface(LPCWSTR, void**, DWORD)
{
    logDebug("GetKeyStorageInterface");
    return NTE_NOT_SUPPORTED;
}

extern "C" HRESULT WINAPI DllRegisterServer()
{
    return E_NOTIMPL;
}

extern "C" HRESULT WINAPI DllUnregisterServer()
{
    return E_NOTIMPL;
}
