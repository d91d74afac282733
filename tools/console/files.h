// Reads and writes files of any size in pieces of one megabyte.
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

// "-" stands for standard input and standard output.
inline bool isStandardStream(const std::filesystem::path& path)
{
    return path == "-";
}

// Returns the name for messages.
std::string inputName(const std::filesystem::path& path);

class InputFile {
public:
    // Throws a Failure if the file can't be opened.
    explicit InputFile(std::filesystem::path path);

    std::string name() const { return inputName(path_); }
    // Fills `buffer` and returns the count. Fewer bytes than asked for mean the end of the file.
    std::size_t read(std::span<unsigned char> buffer);

private:
    std::filesystem::path path_;
    File handle_;
};

// Hands the file to `take` in pieces. All but the last are full.
void forEachPiece(InputFile& file, const std::function<void(ByteView)>& take);

// Writes under a temporary name in the target's folder. Only commit() makes or replaces the target. Standard output gets each
// piece at once.
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

// Reads a file that is small by nature, as a certificate. Throws a Failure if the file has more than `limit` bytes.
Bytes readSmallFile(const std::filesystem::path& path, std::size_t limit = 16 * pieceSize);

// Throws a Failure if `output` is the file `input`.
void refuseSameFile(const std::filesystem::path& input, const std::filesystem::path& output);

// From here on Ctrl-C ends a run between two pieces, so that no temporary file stays behind. A second Ctrl-C ends it at once.
void stopOnInterrupt();
bool wasInterrupted();

} // namespace quelta::tools
