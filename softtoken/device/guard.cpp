#include "device/guard.h"

#include "store/pin.h"

namespace quelta::softtoken {

bool isToken(const StoredToken& state, const char* deviceId)
{
    return state.plugged && deviceId != nullptr && state.serial == deviceId;
}

int changeAsAdministrator(const char* deviceId, const char* pin, const std::function<Result(StoredToken&)>& change) noexcept
{
    return withToken(deviceId, [&](const StoredToken&) {
        int result = static_cast<int>(Result::failed);
        changeToken(tokenFolder(), [&](StoredToken& state) {
            result = isToken(state, deviceId) ? mayUse(state, Use::administration, pin) : static_cast<int>(Result::noToken);
            if (result == 0) result = static_cast<int>(change(state));
            return result == 0;
        });
        return result;
    });
}

ByteView viewOf(const unsigned char* data, int length)
{
    if (length < 0 || (data == nullptr && length > 0))
        throw TokenError(Result::badArgument, "a buffer is missing or its length negative");
    return {data, static_cast<std::size_t>(length)};
}

} // namespace quelta::softtoken
