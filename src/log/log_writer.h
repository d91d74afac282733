// Each call writes one line to today's log file, <temporary folder>/Oskvar/<process>/<date>.LOG. Each line reads the level from
// the registry and opens the file anew, so a changed level or a deleted folder takes effect at the next line. No failure reaches
// the caller, and the thread's last error stays unchanged.
#pragma once

#include "base/bytes.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>

namespace quelta {

constexpr int logLevelException = 1;
constexpr int logLevelError = 2;
constexpr int logLevelDebug = 3;

// Bytes that become upper-case hexadecimal text only if the line is written.
struct HexText {
    ByteView bytes;
};
inline HexText hex(ByteView bytes)
{
    return {bytes};
}

// A wide text that becomes narrow text only if the line is written: each UTF-16 unit keeps its low 8 bits.
struct NarrowedText {
    std::wstring_view text;
};
inline NarrowedText narrowed(std::wstring_view text)
{
    return {text};
}

// One piece of a line. It becomes text only if the line is written.
class LogPiece {
public:
    LogPiece(const char* text) : value_(std::string_view(text)) {}
    LogPiece(std::string_view text) : value_(text) {}
    LogPiece(const std::string& text) : value_(std::string_view(text)) {}
    LogPiece(HexText bytes) : value_(bytes) {}
    LogPiece(NarrowedText text) : value_(text) {}
    template <std::signed_integral T>
    LogPiece(T number) : value_(static_cast<std::int64_t>(number))
    {}
    template <std::unsigned_integral T>
    LogPiece(T number) : value_(static_cast<std::uint64_t>(number))
    {}
    LogPiece(bool) = delete;

    void appendTo(std::string& line) const;

private:
    std::variant<std::string_view, std::int64_t, std::uint64_t, HexText, NarrowedText> value_;
};

void logPieces(int level, std::initializer_list<LogPiece> pieces) noexcept;

template <class... Pieces>
void logDebug(const Pieces&... pieces)
{
    logPieces(logLevelDebug, {LogPiece(pieces)...});
}

template <class... Pieces>
void logError(const Pieces&... pieces)
{
    logPieces(logLevelError, {LogPiece(pieces)...});
}

void writeLog(int level, std::string_view message) noexcept;
int getLogLevel();

using LogPath = std::array<char, 1024>;

// Writes the temporary folder into `buffer` and returns 0. Returns -1 and leaves the buffer empty if there is no such folder.
int getLogBaseFolderPath(LogPath& buffer) noexcept;
std::string getProcessName();
// Creates only the first missing folder of `path`, so the first line of a process may be lost. The writer ignores the result.
int createLogFolder(std::string_view path) noexcept;

// The slot for a mutex. If a mutex is installed, each line is written under it. The module installs none.
std::mutex*& logMutexSlot();

} // namespace quelta
