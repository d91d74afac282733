// The custom actions of quelta.wxs: work for which Windows Installer has no action. The installer shows a failure in its window
// and in its log.
#include "base/text.h"
#include "device_library.h"
#include "publishing.h"
#include "quiet_start.h"
#include "register/self_registration.h"

#include <msi.h>
#include <msiquery.h>

#include <exception>
#include <string>

using namespace quelta;
using namespace quelta::installer;

namespace {

constexpr DWORD longestUnpublishing = 60'000;

UINT fail(MSIHANDLE install, const std::wstring& text)
{
    const MSIHANDLE record = MsiCreateRecord(1);
    MsiRecordSetStringW(record, 0, L"[1]");
    MsiRecordSetStringW(record, 1, (L"Quelta: " + text).c_str());
    MsiProcessMessage(install, INSTALLMESSAGE_ERROR, record);
    MsiCloseHandle(record);
    return ERROR_INSTALL_FAILURE;
}

// Runs an action. An exception that left the action would end Windows Installer's process.
template <class Work>
UINT action(MSIHANDLE install, Work work)
{
    try {
        const Trouble trouble = work();
        return trouble ? fail(install, *trouble) : ERROR_SUCCESS;
    } catch (const std::exception& exception) {
        return fail(install, toWide(exception.what()));
    }
}

// Runs an action that reports no trouble.
template <class Work>
UINT quietAction(MSIHANDLE install, Work work)
{
    return action(install, [&]() -> Trouble {
        work();
        return {};
    });
}

std::wstring property(MSIHANDLE install, const wchar_t* name)
{
    std::wstring text;
    DWORD length = 0;
    wchar_t none[1];
    if (MsiGetPropertyW(install, name, none, &length) != ERROR_MORE_DATA) return text;
    text.resize(length++);
    if (MsiGetPropertyW(install, name, text.data(), &length)) return {};
    return text;
}

// Returns CustomActionData: the only property that a deferred action can read.
std::wstring customActionData(MSIHANDLE install)
{
    return property(install, L"CustomActionData");
}

} // namespace

// Calls the module's DllRegisterServer, which is linked in. regsvr32 would load the module, which needs the maker's library. That
// library may come later.
extern "C" UINT WINAPI RegisterKeyStorage(MSIHANDLE install)
{
    const HRESULT result = DllRegisterServer();
    if (SUCCEEDED(result)) return ERROR_SUCCESS;
    return fail(install, L"Windows refused to register the key storage provider (error " + std::to_wstring(result) + L")");
}

// A failure is ignored: a rollback or a removal has to go on.
extern "C" UINT WINAPI UnregisterKeyStorage(MSIHANDLE)
{
    DllUnregisterServer();
    return ERROR_SUCCESS;
}

// Runs before anything was changed, while an older version is still installed.
extern "C" UINT WINAPI RefuseOtherLibrary(MSIHANDLE install)
{
    return action(install, otherDeviceLibrary);
}

extern "C" UINT WINAPI CheckDeviceLibrary(MSIHANDLE install)
{
    return action(install, [&] { return checkDeviceLibrary(property(install, L"DEVICELIBRARY")); });
}

// Runs before Windows Installer looks for files in use.
extern "C" UINT WINAPI EndPublishing(MSIHANDLE install)
{
    return quietAction(install, endPublishing);
}

extern "C" UINT WINAPI CopyDeviceLibrary(MSIHANDLE install)
{
    return action(install, [&] { return copyDeviceLibrary(customActionData(install)); });
}

extern "C" UINT WINAPI KeepDeviceLibrary(MSIHANDLE install)
{
    return quietAction(install, keepDeviceLibrary);
}

extern "C" UINT WINAPI UndoDeviceLibrary(MSIHANDLE install)
{
    return quietAction(install, undoDeviceLibrary);
}

extern "C" UINT WINAPI RemoveDeviceLibrary(MSIHANDLE install)
{
    return action(install, removeDeviceLibrary);
}

// Removes the published certificates of the user who removes the product.
extern "C" UINT WINAPI UnpublishCertificates(MSIHANDLE install)
{
    return quietAction(install, [&] {
        if (const File process = startQuietly(customActionData(install), L"unpublish"))
            WaitForSingleObject(process.get(), longestUnpublishing);
    });
}
