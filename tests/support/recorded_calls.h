#pragma once

#include "support/guarded_buffer.h"
#include "support/recorder.h"

#include <array>
#include <concepts>
#include <variant>

namespace quelta::test {

// A last error that no call sets by itself.
constexpr DWORD sentinelError = 0x5E47;

template <class Result>
struct Called {
    Result result;
    DWORD lastError;

    bool lastErrorKept() const { return lastError == sentinelError; }
};

// Sets the last error to a known value, makes the call, and returns the last error after it.
template <class Call>
Called<std::invoke_result_t<Call>> callWithLastError(Call call)
{
    SetLastError(sentinelError);
    auto result = call();
    return {result, GetLastError()};
}

// The bytes that a caller passes; nullopt for a null pointer.
using Input = std::optional<Bytes>;

// The place for an answer: the size of the buffer, and the room that the caller states.
struct Place {
    std::optional<DWORD> buffer;
    std::optional<DWORD> stated;
    // The caller passes the same address for buffer and length.
    bool shared = false;
};

// Data that its result overwrites. It stands at the front of a buffer of this size.
struct InPlace {
    Bytes data;
    DWORD room;
};

ULONG_PTR addressOf(const void* object);
// An address and flags for functions that ignore them.
constexpr ULONG_PTR unreadable = 16;
constexpr DWORD anyFlags = 64;

// A function of one of the interfaces. The caller knows only the published layout.
struct Function {
    // No function takes more arguments. By the calling convention a function ignores surplus ones.
    using Values = std::array<ULONG_PTR, 9>;

    LONG operator()(const Values& values) const { return std::apply(address, values); }

    std::string name;
    // A letter for each argument, a capital for one that can't be null:
    //   P context or provider, K key or hash, T text, D input, L its length, l a length without a limit, B buffer, R its room,
    //   C place of the length (it holds the room unless R stands before it), H place of a new handle, A place of another answer,
    //   X ignored, f flags, g ignored flags, n another number.
    std::string arguments;
    LONG(WINAPI* address)
    (ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR);
};

// The kind of handle that a function makes, and the function that frees it.
struct MadeHandle {
    const char* kind;
    const char* freedBy;
};
MadeHandle handleMadeBy(const std::string& function);
// `owner` is the context or the provider. It may be `made` itself.
void freeMade(const Function& freeing, ULONG_PTR owner, ULONG_PTR made);

// Calls the functions of an interface, and records the calls. A handle that no scenario frees stays until the process ends.
class RecordedCalls {
public:
    using Handle = ULONG_PTR;

    // A handle, a parameter or flags.
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
    // Another value for an argument. Arguments are counted from 1.
    struct Change {
        std::size_t argument;
        ULONG_PTR value;
    };
    static constexpr std::nullopt_t null = std::nullopt;

    RecordedCalls(const RecordedCalls&) = delete;
    RecordedCalls& operator=(const RecordedCalls&) = delete;

    // Calls a function with the context or the provider and, in their order, the other arguments that it uses. Missing arguments
    // at the end are 0. Arguments that the function ignores are not 0. Returns the new handle; without one, what the function
    // returned.
    ULONG_PTR operator()(std::string_view name, const std::vector<Stated>& stated = {}, std::optional<Change> change = {});

    // Functions, each with arguments with which it succeeds.
    using Rows = std::vector<std::pair<const char*, std::vector<Stated>>>;
    // Repeats each call with each argument null in turn, and with each length larger than the token can count.
    void leaveOutEach(const Rows& rows);
    // Calls each function whose letters match, with these values. All other arguments are 0, but flags are set.
    void callEach(const std::string& title, const char* argumentsLike, const Function::Values& values);

protected:
    RecordedCalls(Recorder& recorder, const std::vector<Function>& functions) : recorder_(recorder), functions_(functions) {}
    ~RecordedCalls() = default;

    std::string handle(Handle handle) const { return recorder_.handle(handle); }

    Recorder& recorder_;
    // The context or the provider that all calls go to.
    Handle opened_ = 0;

private:
    const Function& named(std::string_view name) const { return *std::ranges::find(functions_, name, &Function::name); }

    const std::vector<Function>& functions_;
};

// Returns, for example, "TRUE, ERROR_MORE_DATA".
std::string answerText(const Called<BOOL>& called);
// Returns, for example, "NTE_FAIL", or "0" for success.
std::string statusText(LONG status);

} // namespace quelta::test
