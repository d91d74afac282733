// A handle is the address of the record behind it. These are the only places that convert one into the other. A handle that was
// freed or never was one can't be told from a live one.
#pragma once

#include <cstdint>
#include <memory>
#include <new>

namespace quelta {

// For the entry points whose answer to exhausted memory differs from the usual one, or comes without a log line.
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
