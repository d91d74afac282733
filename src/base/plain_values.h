// Converts values of plain types to bytes and back. The bytes need not be aligned.
#pragma once

#include "base/bytes.h"

#include <cstring>
#include <type_traits>

namespace quelta {

// Returns a view of the value's bytes. The value must outlive the view.
template <class Value>
ByteView bytesOf(const Value& value)
{
    return {reinterpret_cast<const unsigned char*>(&value), sizeof value};
}

// Reads a value from the `sizeof(Value)` bytes at `memory`.
template <class Value>
Value valueOf(const void* memory)
{
    static_assert(std::is_trivially_copyable_v<Value>);
    Value value{};
    std::memcpy(&value, memory, sizeof value);
    return value;
}

} // namespace quelta
