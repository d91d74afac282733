#include "device/guard.h"
#include "store/pin.h"
#include "token/device_functions.h"

namespace quelta::softtoken {

namespace {

// A damaged token is listed, and its calls fail. An empty list would say that no token is plugged in.
constexpr const char* unreadableToken = "QUELTA-SOFTWARE-TOKEN-PROTECTS-NOTHING-UNREADABLE";

} // namespace

} // namespace quelta::softtoken

using namespace quelta;
using namespace quelta::softtoken;

int quelta_init(int first, int second)
{
    return static_cast<int>(first == 0 && second == 2 ? Result::ok : Result::badArgument);
}

int quelta_initDevice(const char* deviceId, bool, void*)
{
    return withToken(deviceId, [](const StoredToken&) { return Result::ok; });
}

std::vector<std::string> quelta_getConnectedDeviceList(bool flag, void*)
{
    std::vector<std::string> devices;
    guarded([&] {
        if (flag) return Result::badArgument;
        const Reading reading = readToken(tokenFolder());
        if (!reading)
            devices.emplace_back(unreadableToken);
        else if (*reading && (*reading)->plugged)
            devices.push_back((*reading)->serial);
        return Result::ok;
    });
    return devices;
}

TokenInfo quelta_getTokenInfo(const char* deviceId, void*)
{
    TokenInfo info{};
    withToken(deviceId, [&](const StoredToken& state) {
        info.otherTexts[0] = state.label;
        info.otherTexts[1] = "software token, protects nothing";
        info.singleSignOnEnabled = state.singleSignOnEnabled ? 1 : 0;
        info.singleSignOnOpen = state.singleSignOnOpen ? 1 : 0;
        info.serialNumber = state.serial;
        return Result::ok;
    });
    return info;
}

int quelta_validatePassword(const char* deviceId, const char* pin, int mode, int* remaining, void*)
{
    return withToken(deviceId, [&](const StoredToken&) {
        if (pin == nullptr || mode != 1) return static_cast<int>(Result::badArgument);
        const PinAnswer answer = validatePin(tokenFolder(), pin);
        if (remaining != nullptr && answer.remaining >= 0) *remaining = answer.remaining;
        return answer.result;
    });
}
