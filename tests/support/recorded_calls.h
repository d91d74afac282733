#pragma once

#include "support/guarded_buffer.h"
#include "support/recorder.h"

namespace quelta::test {

// What a caller hands in; nothing for a null pointer.
using Input = std::optional<Bytes>;
std::string inputWords(const Input& input);

// The bytes of one call's input, which end at an inaccessible page.
class HandedInput {
public:
    explicit HandedInput(const Input& input)
    {
        if (input) bytes_.emplace(*input);
    }
    unsigned char* data() { return bytes_ ? bytes_->data() : nullptr; }
    DWORD size() const { return bytes_ ? bytes_->length() : 0; }

private:
    std::optional<GuardedBuffer> bytes_;
};

// Where a caller wants its answer: the size of its buffer, and the room that it states.
struct Place {
    std::optional<DWORD> buffer;
    std::optional<DWORD> stated;
};

// "room 256", "no buffer", "no buffer, room 7", "room 256, no length", "neither buffer nor length".
std::string words(const Place& place);

// The buffer and the length of one call, each at the edge of an inaccessible page.
class HandedBuffer {
public:
    // The length says the room on the way in, and what is there on the way out.
    explicit HandedBuffer(const Place& place) : HandedBuffer(place, place.stated.value_or(0)) {}
    // The same with a buffer that holds something already.
    HandedBuffer(ByteView content, DWORD stated);
    // The length is for the answer alone, the room is handed over beside it.
    static HandedBuffer withResult(const Place& place) { return {place, noResult}; }

    BYTE* data() { return buffer_ ? buffer_->data() : nullptr; }
    DWORD room() const { return room_; }
    DWORD* length() { return length_ ? reinterpret_cast<DWORD*>(length_->data()) : nullptr; }

    // The bytes that the answer says are there, as far as the buffer goes.
    Bytes written() const;
    // ", length 256, 256 bytes rising from 01" and whatever else was changed; `value` stands for the bytes where it is given.
    std::string outcome(const std::optional<std::string>& value = std::nullopt) const;

private:
    static constexpr DWORD noResult = 0x5EED5EED;

    HandedBuffer(const Place& place, DWORD length);
    std::size_t reported() const;

    std::optional<GuardedBuffer> buffer_;
    std::optional<GuardedBuffer> length_;
    Bytes before_;
    DWORD room_ = 0;
};

// What the recorded calls of both interfaces share.
class RecordedCalls {
public:
    static constexpr std::nullopt_t null = std::nullopt;

protected:
    using Handle = ULONG_PTR;

    explicit RecordedCalls(Recorder& recorder) : recorder_(recorder) {}

    std::string handle(Handle handle) const { return recorder_.handle(handle); }
    // The first argument of nearly every call, and the others.
    template <class... Words>
    std::string argumentsAfter(Handle first, const Words&... words) const
    {
        return handle(first) + ((", " + std::string(words)) + ... + "");
    }
    // A call that puts a new handle where it is told and says what it answered; 0 if it made none.
    Handle handsOut(const std::string& name, const std::string& arguments, const char* kind,
                    const std::function<std::string(Handle*)>& call);

    Recorder& recorder_;
};

} // namespace quelta::test
