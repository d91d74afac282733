// What every CryptoAPI entry point has in common: its name in the log, no exception out, the last error set once, at the end.
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

// The Boolean that is returned and the last error that goes with it; without one, the caller keeps the last error it came with.
// TRUE with ERROR_MORE_DATA is an answer too.
struct Answer {
    BOOL value;
    std::optional<DWORD> lastError;
};

inline Answer done()
{
    return {TRUE, std::nullopt};
}
// Takes the published constants as they come: NTE_ codes are of a signed type, Win32 codes of another.
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
