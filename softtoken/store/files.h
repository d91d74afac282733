#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quelta::softtoken {

// Identifies a file's content: every change by writeAtomically changes the stamp.
struct FileStamp {
    std::uint64_t time;
    std::uint64_t size;
    bool operator==(const FileStamp&) const = default;
};

// Returns nullopt if there is no such file.
std::optional<FileStamp> stampOf(const std::filesystem::path& path);

Bytes readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, ByteView content);
// Writes the whole file or nothing. The caller must hold the exclusive lock.
void writeAtomically(const std::filesystem::path& path, ByteView content);

enum class LockKind { shared, exclusive };

// Waits for the lock and holds it until destruction or the end of the process. A shared lock is null in a folder that can't be
// written: nobody changes a token there.
File lockFile(const std::filesystem::path& path, LockKind kind);

} // namespace quelta::softtoken
