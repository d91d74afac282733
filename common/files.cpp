#include "common/files.h"

#include <algorithm>

namespace quelta {

namespace {

constexpr std::size_t pieceSize = 1024 * 1024;
constexpr int replaceTries = 50;
constexpr DWORD replacePause = 20;

// A virus scanner or a backup may have the old file open for a moment.
bool replace(const std::filesystem::path& from, const std::filesystem::path& to)
{
    for (int attempt = 1;; ++attempt) {
        if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
        if (attempt == replaceTries) return false;
        Sleep(replacePause);
    }
}

} // namespace

bool writeAll(const File& file, ByteView bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        const auto wanted = static_cast<DWORD>(std::min(bytes.size(), pieceSize));
        if (!WriteFile(file.get(), bytes.data(), wanted, &written, nullptr)) return false;
        bytes = bytes.subspan(written);
    }
    return true;
}

FileReplacement::FileReplacement(std::filesystem::path target, std::wstring_view suffix)
    : target_(std::move(target)),
      temporary_(target_.native() + std::wstring(suffix)),
      file_(fileOf(CreateFileW(temporary_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                               nullptr)))
{}

FileReplacement::~FileReplacement()
{
    // A temporary file that another process has open is not deleted.
    if (committed_ || !file_) return;
    file_.reset();
    DeleteFileW(temporary_.c_str());
}

bool FileReplacement::commit()
{
    if (!FlushFileBuffers(file_.get())) return false;
    file_.reset();
    committed_ = replace(temporary_, target_);
    if (committed_) return true;
    const DWORD error = GetLastError();
    DeleteFileW(temporary_.c_str());
    SetLastError(error);
    return false;
}

} // namespace quelta
