// What every exported function has in common: the token that is plugged in, the PIN, and no exception across the boundary. What
// an application meets every day (no token, a wrong PIN, too little room, data for another key) is answered without an exception:
// the first one in a thread costs the statically linked runtime handles that no unloading of the library gives back.
//
// For the same reason no process-wide object here is a static of a function: the guard of such a one makes that runtime keep a
// record of the thread, with two handles and a TLS slot.
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

// The work gets the state of the token, if one is plugged in. With an identifier, only the token that has it.
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

// If the PIN allows it, applies the change and writes it when it answers ok. A change that throws leaves the token as it is.
int changeAsAdministrator(const char* deviceId, const char* pin, const std::function<Result(StoredToken&)>& change) noexcept;

// Throws TokenError(badArgument) for a negative length, or a null pointer with a length.
ByteView viewOf(const unsigned char* data, int length);

// A zero-terminated text in a field of a record; all of the field if no zero is there.
template <std::size_t size>
std::string fieldText(const char (&field)[size])
{
    const void* end = std::memchr(field, 0, size);
    return std::string(field, end == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(end) - field));
}

} // namespace quelta::softtoken
