#include "device/guard.h"

namespace quelta::softtoken {

namespace {

void requirePlugged(const TokenState& state, const char* deviceId)
{
    if (!state.plugged) throw TokenError(Result::noToken, "the token is unplugged");
    if (deviceId == nullptr || state.serial != deviceId) throw TokenError(Result::noToken, "no token with this identifier");
}

} // namespace

std::shared_ptr<const TokenState> pluggedToken()
{
    auto state = readToken(tokenFolder());
    if (!state || !state->plugged) throw TokenError(Result::noToken, "no token is plugged in");
    return state;
}

std::shared_ptr<const TokenState> pluggedToken(const char* deviceId)
{
    auto state = pluggedToken();
    requirePlugged(*state, deviceId);
    return state;
}

void changePluggedToken(const char* deviceId, const std::function<void(TokenState&)>& change)
{
    changeToken(tokenFolder(), [&](TokenState& state) {
        requirePlugged(state, deviceId);
        change(state);
        return true;
    });
}

ByteView viewOf(const unsigned char* data, int length)
{
    if (length < 0 || (data == nullptr && length > 0))
        throw TokenError(Result::badArgument, "a buffer is missing or its length negative");
    return {data, static_cast<std::size_t>(length)};
}

} // namespace quelta::softtoken
