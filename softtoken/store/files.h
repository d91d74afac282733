#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quelta::softtoken {

// Changes with every change of a file that writeAtomically makes.
struct FileStamp {
    std::uint64_t time;
    std::uint64_t size;
    bool operator==(const FileStamp&) const = default;
};

// Nothing if there is no such file.
std::optional<FileStamp> stampOf(const std::filesystem::path& path);

Bytes readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, ByteView content);
// Whole or not at all. The caller keeps other writers and readers out.
void writeAtomically(const std::filesystem::path& path, ByteView content);
// Throws TokenError if that would fail; changes nothing. The caller keeps writers out.
void requireWritable(const std::filesystem::path& path);

enum class LockKind { shared, exclusive };

// Held until destruction or until the process dies; waits for the others. Null where a shared lock can't be had: a folder that
// can't be written has no changers.
File lockFile(const std::filesystem::path& path, LockKind kind);

} // namespace quelta::softtoken
