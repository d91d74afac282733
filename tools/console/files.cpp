#include "tools/console/files.h"

#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <system_error>

namespace quelta::tools {

namespace {

std::atomic<bool> interrupted = false;

BOOL WINAPI onInterrupt(DWORD)
{
    return interrupted.exchange(true) ? FALSE : TRUE;
}

void endIfInterrupted()
{
    if (interrupted) throw Failure("interrupted; no file was written");
}

File openToRead(const std::filesystem::path& path)
{
    if (!isStandardStream(path))
        return fileOf(
            CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    HANDLE copy = nullptr;
    const HANDLE process = GetCurrentProcess();
    DuplicateHandle(process, GetStdHandle(STD_INPUT_HANDLE), process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
    return File(copy);
}

} // namespace

std::string inputName(const std::filesystem::path& path)
{
    return isStandardStream(path) ? "standard input" : nameOf(path);
}

InputFile::InputFile(std::filesystem::path path) : path_(std::move(path)), handle_(openToRead(path_))
{
    if (!handle_) failWithLastError("can't open " + name());
}

std::size_t InputFile::read(std::span<unsigned char> buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const auto wanted = static_cast<DWORD>(std::min(buffer.size() - filled, pieceSize));
        DWORD got = 0;
        // A closed pipe is the end of input.
        if (!ReadFile(handle_.get(), buffer.data() + filled, wanted, &got, nullptr) && GetLastError() != ERROR_BROKEN_PIPE)
            failWithLastError("can't read " + name());
        if (!got) break;
        filled += got;
    }
    return filled;
}

void forEachPiece(InputFile& file, const std::function<void(ByteView)>& take)
{
    Bytes piece(pieceSize);
    while (const std::size_t length = file.read(piece)) {
        endIfInterrupted();
        take({piece.data(), length});
    }
}

OutputFile::OutputFile(const std::filesystem::path& target) : name_(nameOf(target))
{
    if (isStandardStream(target)) {
        name_ = "to standard output";
        useOutputForContent();
        return;
    }
    replacement_.emplace(target, L"." + std::to_wstring(GetCurrentProcessId()) + L".part");
    if (!*replacement_) fail();
    std::error_code ignored;
    if (std::filesystem::is_directory(target, ignored)) throw Failure("can't write " + name_ + ": it is a folder; name a file");
}

void OutputFile::fail() const
{
    failWithLastError("can't write " + name_);
}

void OutputFile::write(ByteView bytes)
{
    endIfInterrupted();
    if (!(replacement_ ? replacement_->write(bytes) : writeToOutput(bytes))) fail();
}

void OutputFile::commit()
{
    if (replacement_ && !replacement_->commit()) fail();
}

Bytes readSmallFile(const std::filesystem::path& path, std::size_t limit)
{
    InputFile file(path);
    Bytes content;
    for (Bytes piece(pieceSize); const std::size_t length = file.read(piece);) {
        append(content, ByteView(piece).first(length));
        if (content.size() > limit)
            throw Failure(file.name() + " is too large for a certificate or a detached signature; is it the right file?");
    }
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

bool wasInterrupted()
{
    return interrupted;
}

} // namespace quelta::tools
