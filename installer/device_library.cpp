#include "device_library.h"

#include "base/windows_objects.h"

namespace quelta::installer {

namespace {

// The installer's mark: the library in the system's folder is the one that it copied there.
constexpr auto productKey = L"Software\\Oskvar\\Quelta";
constexpr auto makerKey = L"Software\\Oskvar";
constexpr auto markName = L"DeviceLibrary";

std::wstring target()
{
    wchar_t folder[MAX_PATH];
    return std::wstring(folder, GetSystemDirectoryW(folder, MAX_PATH)) + L"\\QueltaDSCLibrary.dll";
}

// What stood there before the copy; an empty file if nothing did.
std::wstring earlier()
{
    return target() + L".old";
}

bool exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool isMarked()
{
    return RegGetValueW(HKEY_LOCAL_MACHINE, productKey, markName, RRF_RT_REG_SZ, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

bool mark(const std::wstring& source)
{
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, productKey, markName, REG_SZ, source.c_str(),
                           static_cast<DWORD>((source.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

void deleteIfEmpty(const wchar_t* name)
{
    DWORD keys = 0;
    DWORD values = 0;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name, 0, KEY_READ, &key)) return;
    const bool known =
        !RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr, nullptr, nullptr);
    RegCloseKey(key);
    if (known && keys + values == 0) RegDeleteKeyW(HKEY_LOCAL_MACHINE, name);
}

void unmark()
{
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, productKey, markName);
    deleteIfEmpty(productKey);
    deleteIfEmpty(makerKey);
}

// One that a program has loaded can be renamed at least, and goes at the next start of Windows.
bool deleteNowOrLater(const std::wstring& path)
{
    if (DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND) return true;
    const std::wstring aside = path + L".gone";
    return MoveFileExW(path.c_str(), aside.c_str(), MOVEFILE_REPLACE_EXISTING) &&
           MoveFileExW(aside.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

bool makeEmpty(const std::wstring& path)
{
    return static_cast<bool>(
        fileOf(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)));
}

bool isEmpty(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    return GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) && !data.nFileSizeHigh && !data.nFileSizeLow;
}

std::wstring because(DWORD error)
{
    return L" (Windows' error " + std::to_wstring(error) + L")";
}

// Nothing of the library runs: not even what it is linked to has to be there.
Trouble lookAt(const std::wstring& source)
{
    const Library library(LoadLibraryExW(source.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES));
    const DWORD error = GetLastError();
    if (!library) return L"DEVICELIBRARY names no 64-bit DLL that can be read: " + source + because(error);
    if (!GetProcAddress(library.get(), "quelta_init")) return L"DEVICELIBRARY names a DLL that is no device library: " + source;
    return {};
}

Trouble putInPlace(const std::wstring& source)
{
    const std::wstring copy = target() + L".new";
    DeleteFileW(earlier().c_str());
    if (!CopyFileW(source.c_str(), copy.c_str(), FALSE)) return because(GetLastError());
    SetFileAttributesW(copy.c_str(), FILE_ATTRIBUTE_NORMAL);
    const bool saved = exists(target()) ? MoveFileExW(target().c_str(), earlier().c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE
                                        : makeEmpty(earlier());
    if (saved && MoveFileExW(copy.c_str(), target().c_str(), MOVEFILE_REPLACE_EXISTING) && mark(source)) return {};
    const DWORD error = GetLastError();
    DeleteFileW(copy.c_str());
    return because(error);
}

} // namespace

Trouble otherDeviceLibrary()
{
    if (!exists(target()) || isMarked()) return {};
    return target() + L" is there already, and this installer did not put it there: remove it first, or leave it in its place";
}

Trouble checkDeviceLibrary(const std::wstring& source)
{
    if (auto trouble = lookAt(source)) return trouble;
    return otherDeviceLibrary();
}

Trouble copyDeviceLibrary(const std::wstring& source)
{
    if (auto trouble = checkDeviceLibrary(source)) return trouble;
    if (const auto trouble = putInPlace(source)) return source + L" could not be copied to " + target() + *trouble;
    return {};
}

void keepDeviceLibrary()
{
    deleteNowOrLater(earlier());
}

void undoDeviceLibrary()
{
    if (!exists(earlier())) return;
    if (!isEmpty(earlier())) {
        MoveFileExW(earlier().c_str(), target().c_str(), MOVEFILE_REPLACE_EXISTING);
        return;
    }
    deleteNowOrLater(target());
    DeleteFileW(earlier().c_str());
    unmark();
}

Trouble removeDeviceLibrary()
{
    if (!isMarked()) return {};
    const bool gone = deleteNowOrLater(target());
    const DWORD error = GetLastError();
    deleteNowOrLater(earlier());
    unmark();
    if (!gone) return target() + L" could not be deleted" + because(error);
    return {};
}

} // namespace quelta::installer
