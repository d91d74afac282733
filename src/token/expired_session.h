#pragma once

#include "log/log_writer.h"
#include "token/pin_prompt.h"

#include <expected>

namespace quelta {

// Calls the token; if it answers that its single sign-on has expired, says so, drops the PIN, has `askAgain` renew it and calls
// once more: a second expiry is a failure like any other. `call` takes the PIN and gives a DeviceResult; `askAgain` gives the new
// PIN or a refusal, which is handed on.
template <class Call, class AskAgain>
auto callWithFreshPin(Pin pin, const char* expiredText, Call call, AskAgain askAgain)
{
    using Result = std::expected<decltype(call(*pin)), typename decltype(askAgain())::error_type>;
    auto outcome = call(*pin);
    if (outcome || outcome.error() != resultSignOnExpired) return Result(std::move(outcome));
    logDebug(expiredText);
    tokenState().pinCache.clear();
    // The last reference to it: it is not to stay in memory for as long as the dialog is open.
    pin.reset();
    const auto renewed = askAgain();
    return renewed ? Result(call(**renewed)) : Result(std::unexpect, renewed.error());
}

} // namespace quelta
