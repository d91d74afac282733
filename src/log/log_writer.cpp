#include "log/log_writer.h"

#include "base/hex.h"
#include "base/last_error.h"
#include "base/text.h"
#include "base/windows_objects.h"
#include "log/utils.h"

#include <psapi.h>

#include <cstdio>
#include <exception>

namespace quelta {

namespace {

void print(std::string_view text) noexcept
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void printException(const char* where, const std::exception& error) noexcept
{
    std::fprintf(stdout, "%s%s\n", where, error.what());
    std::fflush(stdout);
}

std::string_view tagOf(int level)
{
    switch (level) {
    case logLevelException: return "EXCEP ::=>";
    case logLevelError: return "ERROR ::=>";
    case logLevelDebug: return "DEBUG ::=>";
    default: return "INFO  ::=>";
    }
}

// Cuts the path silently at the capacity of a path buffer.
void appendToPath(std::string& path, std::string_view text)
{
    constexpr std::size_t capacity = std::tuple_size_v<LogPath> - 1;
    path += text.substr(0, capacity - std::min(capacity, path.size()));
}

SYSTEMTIME localTime()
{
    // Do not use localtime_s: in one of the runtimes its first call needs the loader. See token/device_library.h.
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return now;
}

std::string today()
{
    const SYSTEMTIME now = localTime();
    std::array<char, 64> date{};
    std::snprintf(date.data(), date.size(), "%04d-%02d-%02d", now.wYear, now.wMonth, now.wDay);
    return date.data();
}

std::string timeStamp()
{
    const SYSTEMTIME now = localTime();
    std::array<char, 64> stamp{};
    std::snprintf(stamp.data(), stamp.size(), "%02d/%02d::%02d:%02d:%02d:%03d-> ", now.wDay, now.wMonth, now.wHour, now.wMinute,
                  now.wSecond, now.wMilliseconds);
    return stamp.data();
}

File openForAppending(const std::string& path)
{
    return fileOf(CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void appendLine(const std::string& path, int level, std::string_view message)
{
    auto* mutex = logMutexSlot();
    const auto lock = mutex ? std::unique_lock(*mutex) : std::unique_lock<std::mutex>();
    const File file = openForAppending(path);
    if (!file) {
        print("\nUnable to write log");
        return;
    }
    std::string line = timeStamp();
    line += "->";
    line += tagOf(level);
    line += message;
    line += '\n';
    DWORD written = 0;
    WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

} // namespace

void LogPiece::appendTo(std::string& line) const
{
    struct Append {
        std::string& line;
        void operator()(std::string_view text) const { line += text; }
        void operator()(std::int64_t number) const { line += std::to_string(number); }
        void operator()(std::uint64_t number) const { line += std::to_string(number); }
        void operator()(HexText value) const { line += toHex(value.bytes); }
        void operator()(NarrowedText value) const { line += toNarrow(value.text); }
    };
    std::visit(Append{line}, value_);
}

void logPieces(int level, std::initializer_list<LogPiece> pieces) noexcept
{
    const LastErrorKeeper keeper;
    if (getLogLevel() < level) return;
    try {
        std::string message;
        for (const auto& piece : pieces) piece.appendTo(message);
        writeLog(level, message);
    } catch (const std::exception& error) {
        printException("Exception in write log : ", error);
    }
}

void writeLog(int level, std::string_view message) noexcept
{
    const LastErrorKeeper keeper;
    try {
        LogPath base{};
        if (getLogBaseFolderPath(base) != 0) print("\nUnable to getLogBaseFolderPath");
        std::string path = base.data();
        appendToPath(path, "/Oskvar/");
        appendToPath(path, getProcessName());
        appendToPath(path, "/");
        createLogFolder(path);
        appendToPath(path, today());
        appendToPath(path, ".LOG");
        appendLine(path, level, message);
    } catch (const std::exception& error) {
        printException("Exception in write log : ", error);
    }
}

// The level is the first byte of the value, whatever its type: a DWORD of 256 gives 0; the text "3" gives 51, which becomes 2.
int getLogLevel()
{
    std::array<signed char, 32> data{};
    DWORD size = static_cast<DWORD>(data.size());
    const LSTATUS status =
        RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Oskvar\\Quelta", "logLevel", RRF_RT_ANY, nullptr, data.data(), &size);
    if (status != ERROR_SUCCESS || data[0] > logLevelDebug) return logLevelError;
    return data[0];
}

int getLogBaseFolderPath(LogPath& buffer) noexcept
{
    buffer.fill('\0');
    GetTempPathA(static_cast<DWORD>(buffer.size()), buffer.data());
    const DWORD attributes = GetFileAttributesA(buffer.data());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) return 0;
    buffer.fill('\0');
    return -1;
}

std::string getProcessName()
{
    try {
        std::array<char, 1024> name{};
        if (!K32GetModuleBaseNameA(GetCurrentProcess(), nullptr, name.data(), static_cast<DWORD>(name.size()))) return {};
        return Utils::split(name.data(), ".").front();
    } catch (const std::exception& error) {
        printException("Exception in getProcessName(): ", error);
        return "QueltaKey Interface";
    }
}

int createLogFolder(std::string_view path) noexcept
{
    try {
        const std::string folder(path.substr(0, std::tuple_size_v<LogPath> - 1));
        for (std::size_t at = folder.find('/', 1); at != std::string::npos; at = folder.find('/', at + 1)) {
            if (CreateDirectoryA(folder.substr(0, at).c_str(), nullptr)) return -1;
        }
        return CreateDirectoryA(folder.c_str(), nullptr);
    } catch (const std::exception& error) {
        printException("Exception in Create Log Folder: ", error);
        return -1;
    }
}

std::mutex*& logMutexSlot()
{
    static std::mutex* slot = nullptr;
    return slot;
}

} // namespace quelta
