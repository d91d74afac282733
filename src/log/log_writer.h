// One line a call into today's log file, <temporary folder>/Oskvar/<process>/<date>.LOG. Nothing is kept between lines: the level
// is read from the registry and the file opened for each, so that a changed level or a deleted folder shows at the next line. No
// failure reaches the caller, and the thread's last error stays as it was.
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

// Bytes that are spelled out in upper-case hexadecimal if the line is written at all.
struct HexText {
    ByteView bytes;
};
inline HexText hex(ByteView bytes)
{
    return {bytes};
}

// A wide text of which each unit keeps its low 8 bits.
struct NarrowedText {
    std::wstring_view text;
};
inline NarrowedText narrowed(std::wstring_view text)
{
    return {text};
}

// One piece of a line; put into words only if the line is written.
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

// 0 on success; -1 leaves the buffer empty.
int getLogBaseFolderPath(LogPath& buffer) noexcept;
std::string getProcessName();
// Stops after the first folder that it had to make, so the first line of a process may find no folder yet.
int createLogFolder(std::string_view path) noexcept;

// A mutex installed here is held while a line is written. Nothing installs one.
std::mutex*& logMutexSlot();

} // namespace quelta
