#pragma once

#include <span>
#include <vector>

namespace quelta {

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

} // namespace quelta
