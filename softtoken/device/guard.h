// Shared by all exported functions: they find the plugged-in token, check the PIN and let no exception out. Everyday failures (no
// token, a wrong PIN, a small buffer, data for another key) are returned without an exception. A thread's first exception costs
// the statically linked runtime handles that unloading does not close.
//
// The functions refuse flags and modes that a correct caller never passes. A module that confuses its arguments fails here too.
//
// No process-wide object here is a function-local static, for the same reason: its guard makes the runtime keep a record of the
// thread, with two handles and a TLS slot.
#pragma once

#include "base/token_error.h"
#include "store/token_store.h"

#include <cstring>

namespace quelta::softtoken {

template <class Work>
int guarded(Work work) noexcept
{
    try {
        return static_cast<int>(work());
    } catch (const TokenError& error) {
        return static_cast<int>(error.result());
    } catch (...) {
        return static_cast<int>(Result::failed);
    }
}

bool isToken(const StoredToken& state, const char* deviceId);

// Calls `work` with the state of the plugged-in token. If an identifier is given, the token must have it.
template <class Work>
int withToken(Work work) noexcept
{
    return guarded([&] {
        const Reading reading = readToken(tokenFolder());
        if (!reading) return static_cast<int>(reading.error().result());
        const auto& state = *reading;
        return state && state->plugged ? static_cast<int>(work(*state)) : static_cast<int>(Result::noToken);
    });
}

template <class Work>
int withToken(const char* deviceId, Work work) noexcept
{
    return withToken([&](const StoredToken& state) {
        return isToken(state, deviceId) ? static_cast<int>(work(state)) : static_cast<int>(Result::noToken);
    });
}

// Checks the PIN, applies the change, and writes the state if the change returns ok. A change that throws changes nothing.
int changeAsAdministrator(const char* deviceId, const char* pin, const std::function<Result(StoredToken&)>& change) noexcept;

// Throws TokenError(badArgument) for a negative length, or a null pointer with a length.
ByteView viewOf(const unsigned char* data, int length);

// Returns the zero-terminated text of a record's field, or the whole field if there is no zero.
template <std::size_t size>
std::string fieldText(const char (&field)[size])
{
    const void* end = std::memchr(field, 0, size);
    return std::string(field, end == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(end) - field));
}

} // namespace quelta::softtoken
