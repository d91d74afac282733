#pragma once

#include <windows.h>

#include <ostream>
#include <type_traits>

namespace quelta::test {

// A last error that no call sets by itself.
constexpr DWORD sentinelError = 0x5E47;

template <class Result>
struct Called {
    Result result;
    DWORD lastError;

    bool lastErrorKept() const { return lastError == sentinelError; }
    friend bool operator==(const Called&, const Called&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Called& called)
    {
        return out << called.result << " with the last error 0x" << std::hex << called.lastError << std::dec;
    }
};

// Calls with a known last error, and tells what it is afterwards.
template <class Call>
Called<std::invoke_result_t<Call>> callWithLastError(Call call)
{
    SetLastError(sentinelError);
    auto result = call();
    return {result, GetLastError()};
}

// What to compare a call with.
inline Called<BOOL> succeeded()
{
    return {TRUE, sentinelError};
}
// Takes the published constants as they come: NTE_ codes are of a signed type, Win32 codes of another.
inline Called<BOOL> failedWith(std::integral auto code)
{
    return {FALSE, static_cast<DWORD>(code)};
}
inline Called<BOOL> succeededWith(std::integral auto code)
{
    return {TRUE, static_cast<DWORD>(code)};
}

} // namespace quelta::test
