// Writes a file whole or not at all: under a temporary name first, which then replaces the target. If Windows refuses, a function
// returns false, and GetLastError() says why.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <filesystem>

namespace quelta {

bool writeAll(const File& file, ByteView bytes);

class FileReplacement {
public:
    // `suffix` is appended to the target's name for the temporary file. Concurrent writers need different suffixes. A constant
    // suffix leaves at most one file behind when processes die.
    FileReplacement(std::filesystem::path target, std::wstring_view suffix);
    // Without commit() the temporary file is deleted, and the target stays as it was.
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // False if the temporary file could not be opened.
    explicit operator bool() const { return static_cast<bool>(file_); }
    const File& file() const { return file_; }
    bool write(ByteView bytes) { return writeAll(file_, bytes); }
    // Replaces the target. Waits up to a second while another process has the target open. Nothing can be written afterwards.
    bool commit();

private:
    std::filesystem::path target_;
    std::filesystem::path temporary_;
    File file_;
    bool committed_ = false;
};

} // namespace quelta
