#include "support/recorded_calls.h"

namespace quelta::test {

std::string inputWords(const Input& input)
{
    if (!input) return "null";
    return input->empty() ? "empty" : valueWords(*input);
}

std::string words(const Place& place)
{
    if (!place.buffer && !place.stated) return "neither buffer nor length";
    const std::string room = "room " + std::to_string(place.stated.value_or(place.buffer.value_or(0)));
    if (!place.buffer) return *place.stated == 0 ? "no buffer" : "no buffer, " + room;
    return place.stated ? room : room + ", no length";
}

HandedBuffer::HandedBuffer(const Place& place, DWORD length) : room_(place.stated.value_or(place.buffer.value_or(0)))
{
    if (place.buffer) before_ = buffer_.emplace(*place.buffer).bytes();
    if (place.stated) length_.emplace(littleEndian({length}));
}

HandedBuffer::HandedBuffer(ByteView content, DWORD stated) : before_(toBytes(content)), room_(stated)
{
    buffer_.emplace(content);
    length_.emplace(littleEndian({stated}));
}

std::size_t HandedBuffer::reported() const
{
    return std::min<std::size_t>(length_ ? length_->asNumber() : before_.size(), before_.size());
}

Bytes HandedBuffer::written() const
{
    return buffer_ ? buffer_->first(reported()) : Bytes();
}

std::string HandedBuffer::outcome(const std::optional<std::string>& value) const
{
    std::string text;
    if (length_) text = length_->asNumber() == noResult ? ", no length" : ", length " + std::to_string(length_->asNumber());
    if (!buffer_ || before_.empty()) return text;
    const Bytes now = buffer_->bytes();
    if (now == before_) return text + ", buffer untouched";
    if (reported() > 0) text += ", " + value.value_or(valueWords(written()));
    const auto behind = ByteView(now).subspan(reported());
    return sameBytes(behind, ByteView(before_).subspan(reported())) ? text : text + ", and behind it " + words(behind);
}

RecordedCalls::Handle RecordedCalls::handsOut(const std::string& name, const std::string& arguments, const char* kind,
                                              const std::function<std::string(Handle*)>& call)
{
    constexpr Handle untouched = 0x5EED;
    Handle made = untouched;
    recorder_.record(name, arguments, [&] {
        std::string text = call(&made);
        if (made == untouched) return text;
        if (made == 0) return text + ", handle 0";
        recorder_.introduce(kind, made);
        return text + ", " + handle(made);
    });
    return made == untouched ? 0 : made;
}

} // namespace quelta::test
