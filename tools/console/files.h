// Files in pieces: a file of any size passes through one megabyte of memory.
#pragma once

#include "base/bytes.h"
#include "common/files.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace quelta::tools {

constexpr std::size_t pieceSize = std::size_t{1024} * 1024;

// Stands for standard input and standard output in place of a file.
inline bool isStandardStream(const std::filesystem::path& path)
{
    return path == "-";
}

// As the user is told of it.
std::string inputName(const std::filesystem::path& path);

class InputFile {
public:
    // Throws a Failure if the file can't be opened.
    explicit InputFile(std::filesystem::path path);

    std::string name() const { return inputName(path_); }
    // Fills `buffer` as far as the file goes; fewer bytes than asked for mean its end.
    std::size_t read(std::span<unsigned char> buffer);

private:
    std::filesystem::path path_;
    File handle_;
};

// Hands the file to `take` piece by piece. Every piece but the last is full.
void forEachPiece(InputFile& file, const std::function<void(ByteView)>& take);

// Written under a temporary name in the target's folder. The target appears, or is replaced, by commit() alone, and complete.
// Standard output gets everything at once.
class OutputFile {
public:
    explicit OutputFile(const std::filesystem::path& target);

    void write(ByteView bytes);
    void commit();

private:
    [[noreturn]] void fail() const;

    std::string name_;
    std::optional<FileReplacement> replacement_;
};

// For what is small by nature: certificates, detached signatures. Refuses a file of more than `limit`.
Bytes readSmallFile(const std::filesystem::path& path, std::size_t limit = 16 * pieceSize);

// Refuses to write the result of reading `input` over `input` itself.
void refuseSameFile(const std::filesystem::path& input, const std::filesystem::path& output);

// From here on Ctrl-C ends a run between two pieces, so that no temporary file stays behind; a second Ctrl-C ends it at once.
void stopOnInterrupt();
bool wasInterrupted();

} // namespace quelta::tools
