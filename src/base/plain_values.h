// Values of plain types as bytes, and back. The bytes need not be aligned.
#pragma once

#include "base/bytes.h"

#include <cstring>
#include <type_traits>

namespace quelta {

// Refers to the value, which must outlive the view.
template <class Value>
ByteView bytesOf(const Value& value)
{
    return {reinterpret_cast<const unsigned char*>(&value), sizeof value};
}

// Reads as many bytes at `memory` as the type has.
template <class Value>
Value valueOf(const void* memory)
{
    static_assert(std::is_trivially_copyable_v<Value>);
    Value value{};
    std::memcpy(&value, memory, sizeof value);
    return value;
}

} // namespace quelta
