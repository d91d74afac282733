#include "library_file.h"

#include "base/windows_objects.h"
#include "common/dll_imports.h"

#include <optional>

namespace quelta::installer {

namespace {

// No library is larger. A disk image that was named by mistake may be larger than the memory.
constexpr LONGLONG largestFile = 256LL * 1024 * 1024;

// Windows Installer's service reads the file as the system: it has another current folder, and no drives of users.
std::optional<std::wstring> whyUnseen(const std::wstring& path)
{
    if (path.starts_with(L"\\\\")) return std::nullopt;
    if (path.size() < 3 || path[1] != L':' || (path[2] != L'\\' && path[2] != L'/'))
        return L"DEVICELIBRARY is no full path: " + path + L". Give one like C:\\folder\\file or \\\\server\\share\\file";
    const UINT type = GetDriveTypeW((path.substr(0, 2) + L'\\').c_str());
    if (type != DRIVE_REMOTE && type != DRIVE_NO_ROOT_DIR) return std::nullopt;
    return L"DEVICELIBRARY is on drive " + path.substr(0, 2) + L", which Windows Installer's service does not have: " + path +
           L". In place of a mapped drive give \\\\server\\share\\file";
}

std::wstring whyUnread(const std::wstring& path, DWORD error)
{
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return L"DEVICELIBRARY names a file that is not there: " + path + L". Correct the path";
    return L"DEVICELIBRARY names a file that can't be read: " + path + because(error) +
           L". Both the account that runs msiexec and the computer's account must be able to read it";
}

// Returns null if nothing is wrong.
const wchar_t* faultOf(ByteView file)
{
    switch (dllKindOf(file)) {
    case DllKind::none: return L"a file that is no DLL";
    case DllKind::otherProcessor: return L"a DLL that is not 64-bit (x64)";
    case DllKind::cutShort: return L"a DLL that is cut short";
    case DllKind::x64: break;
    }
    if (!exportsFunction(file, "quelta_init")) return L"a DLL that is no device library";
    if (compilerOf(file) == Compiler::gcc) return L"a library that was not built with Visual C++, which the module can't use";
    return nullptr;
}

} // namespace

std::wstring because(unsigned long error)
{
    return L" (Windows' error " + std::to_wstring(error) + L")";
}

std::expected<Bytes, unsigned long> contentOf(const std::wstring& path)
{
    const File file = fileOf(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.get(), &size)) return std::unexpected(GetLastError());
    if (size.QuadPart > largestFile) return std::unexpected(DWORD{ERROR_FILE_TOO_LARGE});
    Bytes content(static_cast<std::size_t>(size.QuadPart));
    DWORD length = 0;
    if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &length, nullptr))
        return std::unexpected(GetLastError());
    content.resize(length);
    return content;
}

std::expected<Bytes, std::wstring> deviceLibraryIn(const std::wstring& path)
{
    if (auto reason = whyUnseen(path)) return std::unexpected(*reason);
    auto content = contentOf(path);
    if (!content) return std::unexpected(whyUnread(path, content.error()));
    if (const wchar_t* fault = faultOf(*content))
        return std::unexpected(std::wstring(L"DEVICELIBRARY names ") + fault + L": " + path +
                               L". Name the QueltaDSCLibrary.dll that the token's maker gives out for x64");
    return std::move(*content);
}

} // namespace quelta::installer
