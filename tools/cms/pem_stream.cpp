#include "tools/cms/pem_stream.h"

#include "tools/cms/certificates.h"
#include "tools/console/failure.h"

#include <algorithm>
#include <string_view>

namespace quelta::tools {

namespace {

constexpr std::string_view pemBegin = "-----BEGIN ";
constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t bytesInLine = 48;

} // namespace

std::size_t MessageReader::read(std::span<unsigned char> room)
{
    while (at_ == held_.size() && !ended_) readMore();
    const std::size_t count = std::min(room.size(), held_.size() - at_);
    std::copy_n(held_.begin() + static_cast<std::ptrdiff_t>(at_), count, room.begin());
    at_ += count;
    return count;
}

void MessageReader::readMore()
{
    Bytes piece(pieceSize);
    piece.resize(file_.read(piece));
    held_.clear();
    at_ = 0;
    ended_ = piece.empty();
    ByteView text = piece;
    if (!begun_) {
        begun_ = true;
        pem_ = std::ranges::equal(text.first(std::min(text.size(), pemBegin.size())), pemBegin);
        if (pem_) text = text.subspan(static_cast<std::size_t>(std::ranges::find(text, '\n') - text.begin()));
    }
    if (pem_)
        decode(text);
    else
        held_ = std::move(piece);
}

void MessageReader::decode(ByteView text)
{
    for (const unsigned char character : text) {
        if (ended_) return;
        decode(character);
    }
}

void MessageReader::decode(unsigned char character)
{
    const std::size_t digit = digits.find(static_cast<char>(character));
    if (character == '-') {
        ended_ = true;
    } else if (digit != std::string_view::npos) {
        bits_ = bits_ << 6 | static_cast<unsigned>(digit);
        bitCount_ += 6;
        if (bitCount_ < 8) return;
        bitCount_ -= 8;
        held_.push_back(static_cast<unsigned char>(bits_ >> bitCount_));
    } else if (character > ' ' && character != '=') {
        throw Failure(file_.name() + " is damaged: its PEM text holds what does not belong there; get it anew");
    }
}

MessageWriter::MessageWriter(OutputFile& output, std::string label) : output_(output), label_(std::move(label))
{
    if (!label_.empty()) output_.write(toBytes("-----BEGIN " + label_ + "-----\n"));
}

void MessageWriter::write(ByteView bytes)
{
    if (label_.empty()) return output_.write(bytes);
    append(held_, bytes);
    const std::size_t whole = held_.size() - held_.size() % bytesInLine;
    if (!whole) return;
    writeLines(ByteView(held_).first(whole));
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(whole));
}

void MessageWriter::finish()
{
    if (label_.empty()) return;
    if (!held_.empty()) writeLines(held_);
    output_.write(toBytes("-----END " + label_ + "-----\n"));
}

void MessageWriter::writeLines(ByteView bytes)
{
    output_.write(toBytes(base64Lines(bytes)));
}

} // namespace quelta::tools
