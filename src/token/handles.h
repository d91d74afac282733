// A handle is the address of its record. Only these functions convert one into the other. They cannot detect a handle that was
// freed or that is no handle.
#pragma once

#include <cstdint>
#include <memory>
#include <new>

namespace quelta {

// Returns null if memory is exhausted. For entry points that then return an error code of their own, or must not log it.
template <class Record>
std::unique_ptr<Record> makeRecordOrNull()
{
    return std::unique_ptr<Record>(new (std::nothrow) Record());
}

template <class Record>
Record* recordOf(std::uintptr_t handle)
{
    return reinterpret_cast<Record*>(handle);
}

template <class Record>
std::uintptr_t handOut(std::unique_ptr<Record> record)
{
    return reinterpret_cast<std::uintptr_t>(record.release());
}

template <class Record>
std::unique_ptr<Record> takeBack(std::uintptr_t handle)
{
    return std::unique_ptr<Record>(recordOf<Record>(handle));
}

} // namespace quelta
