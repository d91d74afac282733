#pragma once

#include "log/log_writer.h"
#include "token/pin_prompt.h"

#include <expected>

namespace quelta {

// Calls the token. If the token answers that its single sign-on has expired, logs `expiredText`, drops the PIN, gets a new one
// from `askAgain` and calls once more. A second expiry is an ordinary failure. `call` takes the PIN and returns a DeviceResult.
// `askAgain` returns the new PIN or a refusal, which becomes the result.
template <class Call, class AskAgain>
auto callWithFreshPin(Pin pin, const char* expiredText, Call call, AskAgain askAgain)
{
    using Result = std::expected<decltype(call(*pin)), typename decltype(askAgain())::error_type>;
    auto outcome = call(*pin);
    if (outcome || outcome.error() != resultSignOnExpired) return Result(std::move(outcome));
    logDebug(expiredText);
    tokenState().pinCache.clear();
    // Drop this reference too, so that the PIN is not in memory while the dialog is open.
    pin.reset();
    const auto renewed = askAgain();
    return renewed ? Result(call(**renewed)) : Result(std::unexpect, renewed.error());
}

} // namespace quelta
