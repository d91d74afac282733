// Files are written whole or not at all: under a temporary name first, which then takes the target's place. Nothing here throws
// for what Windows refuses: false, and GetLastError() says why.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <filesystem>

namespace quelta {

bool writeAll(const File& file, ByteView bytes);

class FileReplacement {
public:
    // `suffix` makes the temporary name from the target's. Two that write at once need different ones; one that is always the
    // same leaves no more than one file behind when processes die.
    FileReplacement(std::filesystem::path target, std::wstring_view suffix);
    // Without commit() the temporary file goes, and the target is as it was.
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // False where the temporary file could not be opened.
    explicit operator bool() const { return static_cast<bool>(file_); }
    const File& file() const { return file_; }
    bool write(ByteView bytes) { return writeAll(file_, bytes); }
    // Waits up to a second for whoever has the target open. Nothing can be written any more after it.
    bool commit();

private:
    std::filesystem::path target_;
    std::filesystem::path temporary_;
    File file_;
    bool committed_ = false;
};

} // namespace quelta
