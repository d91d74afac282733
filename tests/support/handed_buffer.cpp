#include "support/handed_buffer.h"

#include "support/words.h"

#include <algorithm>

namespace quelta::test {

std::string inputWords(const Input& input)
{
    if (!input) return "null";
    return input->empty() ? "empty" : valueWords(*input);
}

std::string words(const Place& place)
{
    if (!place.buffer) {
        if (!place.stated) return "neither buffer nor length";
        return *place.stated == 0 ? "no buffer" : "no buffer, room " + std::to_string(*place.stated);
    }
    const std::string room = "room " + std::to_string(place.stated.value_or(*place.buffer));
    return place.stated ? room : room + ", no length";
}

namespace {

ByteView bytesOf(const DWORD& number)
{
    return {reinterpret_cast<const unsigned char*>(&number), sizeof number};
}

} // namespace

HandedBuffer::HandedBuffer(const Place& place, DWORD length) : room_(place.stated.value_or(place.buffer.value_or(0)))
{
    if (place.buffer) before_ = buffer_.emplace(*place.buffer).bytes();
    if (place.stated) length_.emplace(bytesOf(length));
}

HandedBuffer::HandedBuffer(ByteView content, DWORD stated) : before_(content.begin(), content.end()), room_(stated)
{
    buffer_.emplace(content);
    length_.emplace(bytesOf(stated));
}

std::size_t HandedBuffer::reported() const
{
    return std::min<std::size_t>(length_ ? length_->as<DWORD>() : before_.size(), before_.size());
}

Bytes HandedBuffer::written() const
{
    return buffer_ ? buffer_->first(reported()) : Bytes();
}

std::string HandedBuffer::outcome(const std::optional<std::string>& value) const
{
    std::string text;
    if (length_) text = length_->as<DWORD>() == noResult ? ", no length" : ", length " + std::to_string(length_->as<DWORD>());
    if (!buffer_ || before_.empty()) return text;
    const Bytes now = buffer_->bytes();
    if (now == before_) return text + ", buffer untouched";
    if (reported() > 0) text += ", " + value.value_or(valueWords(written()));
    const auto behind = ByteView(now).subspan(reported());
    if (!std::ranges::equal(behind, ByteView(before_).subspan(reported()))) text += ", and behind it " + words(behind);
    return text;
}

} // namespace quelta::test
