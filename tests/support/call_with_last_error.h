#pragma once

#include <windows.h>

#include <type_traits>

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

} // namespace quelta::test
