// Wraps every CryptoAPI entry point: logs its name, stops exceptions, and sets the last error once, at the end.
#pragma once

#include "base/last_error.h"
#include "log/log_writer.h"

#include <windows.h>

#include <wincrypt.h>

#include <concepts>
#include <exception>
#include <expected>
#include <new>
#include <optional>
#include <utility>

namespace quelta {

// The Boolean result and the last error. If there is no last error, the caller's last error stays unchanged. TRUE with
// ERROR_MORE_DATA is possible.
struct Answer {
    BOOL value;
    std::optional<DWORD> lastError;
};

inline Answer done()
{
    return {TRUE, std::nullopt};
}
// Accepts every code without a cast: the published constants have signed types, GetLastError() returns an unsigned one.
inline Answer fail(std::integral auto code)
{
    return {FALSE, static_cast<DWORD>(code)};
}
inline Answer failKeepingLastError()
{
    return {FALSE, std::nullopt};
}
inline Answer moreDataButTrue()
{
    return {TRUE, static_cast<DWORD>(ERROR_MORE_DATA)};
}
inline Answer moreDataAndFalse()
{
    return {FALSE, static_cast<DWORD>(ERROR_MORE_DATA)};
}

template <class T>
using Outcome = std::expected<T, Answer>;

template <class Body>
Answer guarded(const char* name, Body body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        logError(name, " failed: out of memory");
        return fail(NTE_NO_MEMORY);
    } catch (const std::exception& error) {
        logError(name, " failed: ", error.what());
        return fail(NTE_FAIL);
    } catch (...) {
        logError(name, " failed: unknown exception");
        return fail(NTE_FAIL);
    }
}

template <class Body>
BOOL entryPoint(const char* name, Body body) noexcept
{
    const DWORD lastErrorOfCaller = GetLastError();
    logDebug(name);
    const Answer answer = guarded(name, std::move(body));
    SetLastError(answer.lastError.value_or(lastErrorOfCaller));
    return answer.value;
}

} // namespace quelta
