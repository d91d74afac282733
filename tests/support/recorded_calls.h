#pragma once

#include "support/guarded_buffer.h"
#include "support/recorder.h"

#include <array>
#include <concepts>
#include <variant>

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
    // The buffer begins with the length: the caller hands over the same address for both.
    bool shared = false;
};

// "room 256", "no buffer", "no buffer, room 7", "room 256, no length", "neither buffer nor length", "one variable of 4 bytes".
std::string words(const Place& place);

// Data that is overwritten by its result, at the front of a buffer of this size.
struct InPlace {
    Bytes data;
    DWORD room;
};

// The buffer and the length of one call, each at the edge of an inaccessible page.
class HandedBuffer {
public:
    // What the length holds before the call: the room, or a value that no call writes.
    enum class Length { room, unset, none };

    HandedBuffer(const Place& place, Length length);
    explicit HandedBuffer(const InPlace& given);

    BYTE* data() { return buffer_ ? buffer_->data() : nullptr; }
    DWORD room() const { return room_; }
    DWORD* length();

    // The bytes that the answer says are there, as far as the buffer goes.
    Bytes written() const;
    // ", length 256, 256 bytes rising from 01" and whatever else was changed; `value` stands for the bytes where it is given.
    std::string outcome(const std::optional<std::string>& value = std::nullopt) const;

private:
    static constexpr DWORD noResult = 0x5EED5EED;

    std::size_t reported() const;

    std::optional<GuardedBuffer> buffer_;
    std::optional<GuardedBuffer> length_;
    Bytes before_;
    DWORD room_ = 0;
    bool shared_ = false;
};

ULONG_PTR addressOf(const void* object);
// An address and flags for functions that do not look at them.
constexpr ULONG_PTR unreadable = 16;
constexpr DWORD anyFlags = 64;

// A function of one of the interfaces, called as by one who knows the published layout alone.
struct Function {
    // As many as any function takes. The calling convention lets the callee ignore what is left over.
    using Values = std::array<ULONG_PTR, 9>;

    LONG operator()(const Values& values) const { return std::apply(address, values); }

    std::string name;
    // A letter for each argument, a capital for one that can't be null:
    //   P the context or the provider, K a key or a hash, T a text, D an input, L its length, l one that has no limit,
    //   B a buffer, R its room, C where its length goes (unless R stands before it, it holds the room), H where a new handle
    //   goes, A where another answer goes, X what is not looked at, f flags, q those of an enumeration, g flags that are not
    //   looked at, s a key spec, e one that may be none, o a number, a an algorithm, b a blob type, and parameters: v a
    //   provider's, w one to set, y a key's, h a hash's.
    std::string arguments;
    LONG(WINAPI* address)
    (ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR);
};

// The recorded calls of an interface. What they hand out is freed at the end, if it is not freed before.
class RecordedCalls {
public:
    using Handle = ULONG_PTR;

    // A handle, a parameter, flags.
    struct Number {
        Number(std::integral auto number) : value(static_cast<ULONG_PTR>(number)) {}
        ULONG_PTR value;
    };
    struct Text {
        Text(const char* text) : address(addressOf(text)), words(quoted(text)) {}
        Text(const wchar_t* text) : address(addressOf(text)), words(quoted(text)) {}
        Text(std::nullptr_t) : Text(static_cast<const char*>(nullptr)) {}
        ULONG_PTR address;
        std::string words;
    };
    using Stated = std::variant<Number, Text, Input, Place, InPlace>;
    // An argument, counted from 1, that is handed over as another number.
    struct Change {
        std::size_t argument;
        ULONG_PTR value;
    };
    static constexpr std::nullopt_t null = std::nullopt;

    RecordedCalls(const RecordedCalls&) = delete;
    RecordedCalls& operator=(const RecordedCalls&) = delete;

    // Calls a function with the context or the provider and, in their order, what else it looks at. What is left out at the end
    // is 0; what the function does not look at never is. Gives the new handle, else what the function returned.
    ULONG_PTR operator()(std::string_view name, const std::vector<Stated>& stated = {}, std::optional<Change> change = {});

    // Functions, each with arguments that it takes.
    using Rows = std::vector<std::pair<const char*, std::vector<Stated>>>;
    // Each argument in turn is null, and each length more than the token can count.
    void leaveOutEach(const Rows& rows);
    // Each function whose letters are like this gets these values, 0 for all others and flags.
    void callEach(const std::string& title, const char* argumentsLike, const Function::Values& values);
    // Each bit of the flags by itself.
    void trySingleFlags(const Rows& rows);

protected:
    explicit RecordedCalls(Recorder& recorder) : recorder_(recorder) {}
    ~RecordedCalls() = default;

    virtual const std::vector<Function>& functions() const = 0;
    // Makes the call. Gives the result in words, too.
    virtual std::pair<LONG, std::string> call(const Function& function, const Function::Values& values) const = 0;
    virtual bool succeeded(LONG result) const = 0;
    // Of a handle that the function makes: "key".
    virtual const char* kindOf(const Function& function) const = 0;
    virtual std::string inputText(const Function&, const Input& input) const { return inputWords(input); }
    virtual std::optional<std::string> valueText(const Function&, const Function::Values&, ByteView) const
    {
        return std::nullopt;
    }

    std::string handle(Handle handle) const { return recorder_.handle(handle); }

    Recorder& recorder_;
    // The context or the provider that all calls go to.
    Handle opened_ = 0;
    // By their handles, what kind they are of.
    std::map<Handle, std::string> made_;

private:
    // Without what was handed out, whose number says nothing.
    std::string lastAnswer_;
};

} // namespace quelta::test
