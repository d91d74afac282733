#include "device/exports.h"
#include "device/guard.h"
#include "store/pin.h"

using namespace quelta;
using namespace quelta::softtoken;

int quelta_init(int, int)
{
    return 0;
}

int quelta_initDevice(const char* deviceId, bool, void*)
{
    return guarded([&] {
        pluggedToken(deviceId);
        return Result::ok;
    });
}

std::vector<std::string> quelta_getConnectedDeviceList(bool, void*)
{
    std::vector<std::string> devices;
    guarded([&] {
        devices.push_back(pluggedToken()->serial);
        return Result::ok;
    });
    return devices;
}

TokenInfo quelta_getTokenInfo(const char* deviceId, void*)
{
    TokenInfo info{};
    guarded([&] {
        const auto state = pluggedToken(deviceId);
        info.otherTexts[0] = state->label;
        info.otherTexts[1] = "software token, protects nothing";
        info.singleSignOnEnabled = state->singleSignOnEnabled ? 1 : 0;
        info.singleSignOnOpen = state->singleSignOnOpen ? 1 : 0;
        info.serialNumber = state->serial;
        return Result::ok;
    });
    return info;
}

int quelta_validatePassword(const char* deviceId, const char* pin, int, int* remaining, void*)
{
    return guarded([&] {
        if (pin == nullptr) return static_cast<int>(Result::badArgument);
        pluggedToken(deviceId);
        const PinAnswer answer = validatePin(tokenFolder(), pin);
        if (remaining != nullptr && answer.remaining >= 0) *remaining = answer.remaining;
        return answer.result;
    });
}
