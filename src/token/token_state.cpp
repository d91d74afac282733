#include "token/token_state.h"

#include "token/wipe.h"

namespace quelta {

PinText::~PinText()
{
    wipe(text_.data(), text_.size());
}

Pin PinCache::pin() const
{
    static const Pin none = std::make_shared<const PinText>("");
    const Pin pin = content_.load();
    return pin ? pin : none;
}

std::shared_ptr<const Bytes> SharedIv::bytes() const
{
    static const auto none = std::make_shared<const Bytes>();
    const auto bytes = bytes_.load();
    return bytes ? bytes : none;
}

TokenState& tokenState()
{
    static TokenState state;
    return state;
}

} // namespace quelta
