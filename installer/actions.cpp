// What the installer does beyond Windows Installer's own actions; each function is a custom action of quelta.wxs. What goes wrong
// is told by the installer, in its window and in its log.
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

// An exception that left an action would end Windows Installer's process.
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

// For work that has no trouble to tell.
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

// The one text that an action gets that runs later, with the rights of the system.
std::wstring customActionData(MSIHANDLE install)
{
    return property(install, L"CustomActionData");
}

} // namespace

// The module's own DllRegisterServer, which is linked in: to load the module, as regsvr32 does, takes the maker's library, and
// that may come later.
extern "C" UINT WINAPI RegisterKeyStorage(MSIHANDLE install)
{
    const HRESULT result = DllRegisterServer();
    if (SUCCEEDED(result)) return ERROR_SUCCESS;
    return fail(install, L"Windows refused to register the key storage provider (error " + std::to_wstring(result) + L")");
}

// There is nothing to do about a failure.
extern "C" UINT WINAPI UnregisterKeyStorage(MSIHANDLE)
{
    DllUnregisterServer();
    return ERROR_SUCCESS;
}

// While nothing has been changed yet, and an older version still stands.
extern "C" UINT WINAPI RefuseOtherLibrary(MSIHANDLE install)
{
    return action(install, otherDeviceLibrary);
}

extern "C" UINT WINAPI CheckDeviceLibrary(MSIHANDLE install)
{
    return action(install, [&] { return checkDeviceLibrary(property(install, L"DEVICELIBRARY")); });
}

// Before Windows Installer looks at which files are in use.
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

// For the user who removes the product.
extern "C" UINT WINAPI UnpublishCertificates(MSIHANDLE install)
{
    return quietAction(install, [&] {
        if (const File process = startQuietly(customActionData(install), L"unpublish"))
            WaitForSingleObject(process.get(), longestUnpublishing);
    });
}
