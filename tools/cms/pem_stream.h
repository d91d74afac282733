// Messages of any size as PEM text, in pieces: read as what they are, written as asked.
#pragma once

#include "tools/console/files.h"

#include <string>

namespace quelta::tools {

// Hands on a file's bytes, or what its PEM text stands for. What comes after the first message of the text is left alone.
class MessageReader {
public:
    explicit MessageReader(InputFile& file) : file_(file) {}

    std::size_t read(std::span<unsigned char> room);

private:
    void readMore();
    void decode(ByteView text);
    void decode(unsigned char character);

    InputFile& file_;
    bool begun_ = false;
    bool pem_ = false;
    bool ended_ = false;
    // Digits that make no whole bytes yet, six bits each.
    unsigned bits_ = 0;
    unsigned bitCount_ = 0;
    Bytes held_;
    std::size_t at_ = 0;
};

class MessageWriter {
public:
    // `label` as in "CMS"; empty writes the bytes as they are.
    MessageWriter(OutputFile& output, std::string label);

    void write(ByteView bytes);
    // To be called once, after the last byte.
    void finish();

private:
    void writeLines(ByteView bytes);

    OutputFile& output_;
    std::string label_;
    Bytes held_;
};

} // namespace quelta::tools
