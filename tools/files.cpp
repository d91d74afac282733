#include "files.h"

#include "failure.h"
#include "progress.h"
#include "text.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <system_error>

namespace quelta {

namespace {

std::atomic<bool> interrupted = false;

BOOL WINAPI onInterrupt(DWORD)
{
    return interrupted.exchange(true) ? FALSE : TRUE;
}

void endIfInterrupted()
{
    if (interrupted) throw Failure("interrupted; nothing was written");
}

FileHandle opened(HANDLE handle, const std::string& what)
{
    if (handle == INVALID_HANDLE_VALUE) failWithLastError(what);
    return FileHandle(handle);
}

} // namespace

void CloseFile::operator()(void* handle) const
{
    CloseHandle(handle);
}

InputFile::InputFile(std::filesystem::path path)
    : path_(std::move(path)),
      handle_(opened(
          CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr),
          "can't open " + nameOf(path_)))
{
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(handle_.get(), &size)) failWithLastError("can't tell the size of " + name());
    size_ = static_cast<std::uint64_t>(size.QuadPart);
}

std::string InputFile::name() const
{
    return nameOf(path_);
}

std::size_t InputFile::read(std::span<unsigned char> buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const auto wanted = static_cast<DWORD>(std::min(buffer.size() - filled, pieceSize));
        DWORD got = 0;
        if (!ReadFile(handle_.get(), buffer.data() + filled, wanted, &got, nullptr)) failWithLastError("can't read " + name());
        if (!got) break;
        filled += got;
    }
    return filled;
}

void forEachPiece(InputFile& file, const std::string& verb, const std::function<void(ByteView)>& take)
{
    Progress progress(verb, file.size());
    Bytes piece(pieceSize);
    while (const std::size_t length = file.read(piece)) {
        endIfInterrupted();
        take({piece.data(), length});
        progress.advance(length);
    }
}

OutputFile::OutputFile(std::filesystem::path target)
    : target_(std::move(target)), temporary_(target_.native() + L"." + std::to_wstring(GetCurrentProcessId()) + L".part")
{
    std::error_code ignored;
    if (std::filesystem::is_directory(target_, ignored))
        throw Failure("can't write " + nameOf(target_) + ": it is a folder; name a file with -o");
    handle_ = opened(CreateFileW(temporary_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr),
                     "can't write " + nameOf(target_));
}

OutputFile::~OutputFile()
{
    if (temporary_.empty()) return;
    handle_.reset();
    DeleteFileW(temporary_.c_str());
}

void OutputFile::write(ByteView bytes)
{
    endIfInterrupted();
    while (!bytes.empty()) {
        const auto wanted = static_cast<DWORD>(std::min(bytes.size(), pieceSize));
        DWORD written = 0;
        if (!WriteFile(handle_.get(), bytes.data(), wanted, &written, nullptr))
            failWithLastError("can't write " + nameOf(target_));
        bytes = bytes.subspan(written);
    }
}

void OutputFile::commit()
{
    if (!FlushFileBuffers(handle_.get())) failWithLastError("can't write " + nameOf(target_));
    handle_.reset();
    if (!MoveFileExW(temporary_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        failWithLastError("can't write " + nameOf(target_));
    temporary_.clear();
}

Bytes readSmallFile(const std::filesystem::path& path)
{
    InputFile file(path);
    constexpr std::uint64_t limit = 16 * 1024 * 1024;
    if (file.size() > limit)
        throw Failure(file.name() + " is too large for a certificate or a detached signature; is it the right file?");
    Bytes content(static_cast<std::size_t>(file.size()));
    content.resize(file.read(content));
    return content;
}

void refuseSameFile(const std::filesystem::path& input, const std::filesystem::path& output)
{
    std::error_code absent;
    if (std::filesystem::equivalent(input, output, absent))
        throw Failure(nameOf(output) + " is the input itself and would be lost; name another file with -o");
}

void stopOnInterrupt()
{
    SetConsoleCtrlHandler(onInterrupt, TRUE);
}

} // namespace quelta
