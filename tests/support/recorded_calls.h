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

// Calls with a known last error, and tells what it is afterwards.
template <class Call>
Called<std::invoke_result_t<Call>> callWithLastError(Call call)
{
    SetLastError(sentinelError);
    auto result = call();
    return {result, GetLastError()};
}

// The bytes that a caller hands in; nullopt for a null pointer.
using Input = std::optional<Bytes>;

// The place for an answer: the size of the buffer, and the room that the caller states.
struct Place {
    std::optional<DWORD> buffer;
    std::optional<DWORD> stated;
    // The buffer begins with the length: the caller hands over the same address for both.
    bool shared = false;
};

// Data that is overwritten by its result, at the front of a buffer of this size.
struct InPlace {
    Bytes data;
    DWORD room;
};

ULONG_PTR addressOf(const void* object);
// An address and flags for functions that do not look at them.
constexpr ULONG_PTR unreadable = 16;
constexpr DWORD anyFlags = 64;

// A function of one of the interfaces, called as by one who knows the published layout alone.
struct Function {
    // No function takes more arguments. By the calling convention a function ignores surplus ones.
    using Values = std::array<ULONG_PTR, 9>;

    LONG operator()(const Values& values) const { return std::apply(address, values); }

    std::string name;
    // A letter for each argument, a capital for one that can't be null:
    //   P the context or the provider, K a key or a hash, T a text, D an input, L its length, l one that has no limit,
    //   B a buffer, R its room, C where its length goes (unless R stands before it, it holds the room), H where a new handle
    //   goes, A where another answer goes, X what is not looked at, f flags, g flags that are not looked at, n another number.
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
// `owner` is the context or the provider, which may be what is freed.
void freeMade(const Function& freeing, ULONG_PTR owner, ULONG_PTR made);

// The recorded calls of an interface. A handle that no scenario frees stays until the process ends.
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

// "TRUE, ERROR_MORE_DATA"
std::string answerText(const Called<BOOL>& called);
// "NTE_FAIL", or 0
std::string statusText(LONG status);

} // namespace quelta::test
