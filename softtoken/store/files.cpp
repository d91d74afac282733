#include "store/files.h"

#include "base/token_error.h"
#include "common/files.h"
#include "store/token_store.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

constexpr DWORD everythingShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::uintmax_t mostToRead = 64U * 1024 * 1024;
// The temporary file always has the same name, so that processes that die leave at most one file behind.
constexpr std::wstring_view besideSuffix = L".new";

bool isMissing(DWORD error)
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

[[noreturn]] void fail(const char* what, const std::filesystem::path& path)
{
    const DWORD error = GetLastError();
    const std::string reason = isMissing(error)               ? "no such file or folder"
                               : error == ERROR_ACCESS_DENIED ? "access denied"
                                                              : "Windows error " + std::to_string(error);
    throw TokenError(std::string(what) + " " + textOf(path) + ": " + reason);
}

// Returns null if the system refuses.
File tryOpen(const std::filesystem::path& path, DWORD access, DWORD disposition)
{
    return fileOf(CreateFileW(path.c_str(), access, everythingShared, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

File openFile(const std::filesystem::path& path, DWORD access, DWORD disposition, const char* what)
{
    File file = tryOpen(path, access, disposition);
    if (!file) fail(what, path);
    return file;
}

std::uint64_t joined(DWORD high, DWORD low)
{
    return std::uint64_t{high} << 32 | low;
}

// Two changes may fall into one tick of the file system's clock. The later change gets a later stamp.
void setLaterTime(const File& file, std::uint64_t earlier, const std::filesystem::path& path)
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    const std::uint64_t time = std::max(joined(now.dwHighDateTime, now.dwLowDateTime), earlier + 1);
    const FILETIME later{static_cast<DWORD>(time & 0xFFFFFFFFU), static_cast<DWORD>(time >> 32)};
    if (!SetFileTime(file.get(), nullptr, nullptr, &later)) fail("can't date", path);
}

} // namespace

std::optional<FileStamp> stampOf(const std::filesystem::path& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        if (isMissing(GetLastError())) return std::nullopt;
        fail("can't read", path);
    }
    return FileStamp{joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime),
                     joined(data.nFileSizeHigh, data.nFileSizeLow)};
}

Bytes readFile(const std::filesystem::path& path)
{
    const File file = openFile(path, GENERIC_READ, OPEN_EXISTING, "can't read");
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.get(), &size)) fail("can't read", path);
    if (static_cast<std::uintmax_t>(size.QuadPart) > mostToRead) throw TokenError("the file is too large: " + textOf(path));
    Bytes content(static_cast<std::size_t>(size.QuadPart));
    std::size_t filled = 0;
    DWORD got = 1;
    while (filled < content.size() && got != 0) {
        if (!ReadFile(file.get(), content.data() + filled, static_cast<DWORD>(content.size() - filled), &got, nullptr))
            fail("can't read", path);
        filled += got;
    }
    content.resize(filled);
    return content;
}

void writeFile(const std::filesystem::path& path, ByteView content)
{
    if (!writeAll(openFile(path, GENERIC_WRITE, CREATE_ALWAYS, "can't write"), content)) fail("can't write", path);
}

void writeAtomically(const std::filesystem::path& path, ByteView content)
{
    const std::optional<FileStamp> before = stampOf(path);
    FileReplacement replacement(path, besideSuffix);
    if (!replacement || !replacement.write(content)) fail("can't write beside", path);
    setLaterTime(replacement.file(), before ? before->time : 0, path);
    if (!replacement.commit()) fail("can't replace", path);
}

File lockFile(const std::filesystem::path& path, LockKind kind)
{
    const bool exclusive = kind == LockKind::exclusive;
    File file = tryOpen(path, exclusive ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ, OPEN_ALWAYS);
    if (!file && !exclusive) return nullptr;
    if (!file) fail("can't lock", path);
    OVERLAPPED position{};
    if (!LockFileEx(file.get(), exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0, 0, 1, 0, &position)) fail("can't lock", path);
    return file;
}

} // namespace quelta::softtoken
