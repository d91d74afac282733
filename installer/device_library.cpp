#include "device_library.h"

#include "base/windows_objects.h"
#include "common/bcrypt_calls.h"
#include "common/files.h"
#include "library_file.h"

namespace quelta::installer {

namespace {

constexpr const KnownDigest& sha256 = knownDigests[0];

// The installer's mark is the hash of the library that it copied.
constexpr auto productKey = L"Software\\Oskvar\\Quelta";
constexpr auto makerKey = L"Software\\Oskvar";
constexpr auto markName = L"DeviceLibrary";

std::wstring target()
{
    wchar_t folder[MAX_PATH];
    return std::wstring(folder, GetSystemDirectoryW(folder, MAX_PATH)) + L"\\QueltaDSCLibrary.dll";
}

// Returns the path of the file that the copy replaced. The file is empty if there was none.
std::wstring earlier()
{
    return target() + L".replaced";
}

bool exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

Bytes hashOf(ByteView content)
{
    return digestOf(sha256, content);
}

// Returns whether the file in the system's folder is the installer's copy.
bool isOurs()
{
    Bytes mark(sha256.size);
    auto size = static_cast<DWORD>(mark.size());
    if (RegGetValueW(HKEY_LOCAL_MACHINE, productKey, markName, RRF_RT_REG_BINARY, nullptr, mark.data(), &size)) return false;
    const auto content = contentOf(target());
    return content && size == mark.size() && hashOf(*content) == mark;
}

bool mark(ByteView content)
{
    const Bytes hash = hashOf(content);
    const LSTATUS status =
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, productKey, markName, REG_BINARY, hash.data(), static_cast<DWORD>(hash.size()));
    SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
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

// Deletes a file. A file that a program has loaded is renamed, and deleted at the next start of Windows.
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

// A library that a program has loaded can't be replaced, only renamed.
bool putAside()
{
    DeleteFileW(earlier().c_str());
    if (!exists(target())) return makeEmpty(earlier());
    return MoveFileExW(target().c_str(), earlier().c_str(), MOVEFILE_REPLACE_EXISTING);
}

// Writes the checked bytes, since the source may have changed. On failure GetLastError() says why.
bool putInPlace(ByteView content)
{
    FileReplacement copy(target(), L".new");
    return copy && copy.write(content) && putAside() && copy.commit() && mark(content);
}

} // namespace

Trouble otherDeviceLibrary()
{
    if (!exists(target()) || isOurs()) return {};
    return target() + L" is there already, and is not the file that this installer put there. Remove it first";
}

Trouble checkDeviceLibrary(const std::wstring& source)
{
    if (const auto library = deviceLibraryIn(source); !library) return library.error();
    if (const auto trouble = otherDeviceLibrary()) return *trouble + L", or keep it and leave DEVICELIBRARY out";
    return {};
}

Trouble copyDeviceLibrary(const std::wstring& source)
{
    const auto library = deviceLibraryIn(source);
    if (!library) return library.error();
    if (const auto trouble = otherDeviceLibrary()) return trouble;
    if (putInPlace(*library)) return {};
    return source + L" could not be copied to " + target() + because(GetLastError()) +
           L". Free the disk or that file, then install again";
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
        if (const auto content = contentOf(target())) mark(*content);
        return;
    }
    deleteNowOrLater(target());
    DeleteFileW(earlier().c_str());
    unmark();
}

Trouble removeDeviceLibrary()
{
    Trouble trouble;
    if (isOurs() && !deleteNowOrLater(target()))
        trouble = target() + L" could not be deleted" + because(GetLastError()) + L". Delete it by hand";
    unmark();
    return trouble;
}

} // namespace quelta::installer
