// Entry points that have no work behind them yet. They stand in the export table because advapi32 refuses a provider that lacks one.
#include "csp/entry.h"
#include "csp/entry_points.h"

using namespace quelta;

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
