#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace quelta {

// Returns the first row whose `column` equals `value`, or null.
template <class Row, std::size_t Count, class Column, class Value>
const Row* findRow(const Row (&table)[Count], Column Row::*column, const Value& value)
{
    const Row* row = std::ranges::find(table, value, column);
    return row == std::end(table) ? nullptr : row;
}

} // namespace quelta
