#pragma once

#include "base/bytes.h"

#include <windows.h>

namespace quelta::tools {

// Calls a function of Windows twice, for the size and for the value: call(nullptr, &size), call(value, &size), each true if all
// is well. Empty, with the function's last error, if it is not.
template <class Call>
Bytes fetched(Call call)
{
    DWORD size = 0;
    if (!call(nullptr, &size)) return {};
    Bytes value(size);
    if (!call(value.data(), &size)) return {};
    value.resize(std::min<std::size_t>(size, value.size()));
    return value;
}

} // namespace quelta::tools
