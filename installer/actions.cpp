// What the installer does beyond Windows Installer's own actions; each function is a custom action of quelta.wxs. What goes wrong
// is told by the installer, in its window and in its log.
#include "base/windows_objects.h"
#include "device_library.h"
#include "register/self_registration.h"

#include <msi.h>
#include <msiquery.h>

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

UINT answer(MSIHANDLE install, const Trouble& trouble)
{
    return trouble ? fail(install, *trouble) : ERROR_SUCCESS;
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

extern "C" UINT WINAPI RefuseOtherLibrary(MSIHANDLE install)
{
    return answer(install, otherDeviceLibrary());
}

// While nothing has been changed yet, and an older version still stands.
extern "C" UINT WINAPI CheckDeviceLibrary(MSIHANDLE install)
{
    return answer(install, checkDeviceLibrary(property(install, L"DEVICELIBRARY")));
}

extern "C" UINT WINAPI CopyDeviceLibrary(MSIHANDLE install)
{
    return answer(install, copyDeviceLibrary(customActionData(install)));
}

extern "C" UINT WINAPI KeepDeviceLibrary(MSIHANDLE)
{
    keepDeviceLibrary();
    return ERROR_SUCCESS;
}

extern "C" UINT WINAPI UndoDeviceLibrary(MSIHANDLE)
{
    undoDeviceLibrary();
    return ERROR_SUCCESS;
}

extern "C" UINT WINAPI RemoveDeviceLibrary(MSIHANDLE install)
{
    return answer(install, removeDeviceLibrary());
}

// For the user who removes the product; the program is started without its window.
extern "C" UINT WINAPI UnpublishCertificates(MSIHANDLE install)
{
    const std::wstring tool = customActionData(install);
    std::wstring command = L'"' + tool + L"\" unpublish";
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(tool.c_str(), command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &start,
                        &process))
        return ERROR_SUCCESS;
    const File closesThread(process.hThread);
    const File closesProcess(process.hProcess);
    WaitForSingleObject(process.hProcess, longestUnpublishing);
    return ERROR_SUCCESS;
}
