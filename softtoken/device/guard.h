// What every exported function has in common: the token that is plugged in, and no exception across the boundary.
#pragma once

#include "store/token_error.h"
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

// The state of the token in the folder. Throws TokenError(noToken) if there is none or it is unplugged.
std::shared_ptr<const TokenState> pluggedToken();
// The same, if the token has this identifier.
std::shared_ptr<const TokenState> pluggedToken(const char* deviceId);

// Changes the token of this identifier, if it is plugged in at that moment; what the change throws leaves it as it is.
void changePluggedToken(const char* deviceId, const std::function<void(TokenState&)>& change);

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
