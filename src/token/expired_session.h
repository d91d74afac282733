#pragma once

#include "log/log_writer.h"
#include "token/pin_prompt.h"

#include <expected>

namespace quelta {

struct PinRefused {};

// Calls the token; if it answers that its single sign-on has expired, says so, drops the cached PIN, has `askAgain` renew it and
// calls once more: a second expiry is a failure like any other. `call` takes the PIN and gives a DeviceResult; `askAgain` gives
// std::optional<Pin>.
template <class Call, class AskAgain>
auto callWithFreshPin(const Pin& pin, const char* expiredText, Call call, AskAgain askAgain)
    -> std::expected<decltype(call(*pin)), PinRefused>
{
    auto outcome = call(*pin);
    if (outcome || outcome.error() != resultSignOnExpired) return outcome;
    logDebug(expiredText);
    tokenState().pinCache.clear();
    const auto renewed = askAgain();
    if (!renewed) return std::unexpected(PinRefused{});
    return call(**renewed);
}

} // namespace quelta
