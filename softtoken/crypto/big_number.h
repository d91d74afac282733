// Integers of a few thousand bits, for operations that Wine's bcrypt lacks: RSA without padding, OAEP, and the curves P-384 and
// P-521. The timing depends on the operands. This token protects nothing, so that does not matter.
#pragma once

#include "base/bytes.h"
#include "base/token_error.h"

// Boost includes <iostream>, which would open the C++ runtime's streams in the DLL. Unloading does not close their handles.
// Defining that header's own include guard keeps <iostream> out.
#ifdef __GLIBCXX__
#define _GLIBCXX_IOSTREAM 1 // NOLINT(bugprone-reserved-identifier)
#endif
#include <boost/multiprecision/cpp_int.hpp>

namespace quelta::softtoken {

// Expression templates are off: every operator returns a number.
using Number = boost::multiprecision::number<boost::multiprecision::cpp_int_backend<>, boost::multiprecision::et_off>;

inline Number numberFrom(ByteView bigEndian)
{
    Number number;
    if (!bigEndian.empty()) import_bits(number, bigEndian.begin(), bigEndian.end());
    return number;
}

inline std::size_t bitLength(const Number& number)
{
    return number == 0 ? 0 : msb(number) + 1;
}

// Returns the number in `size` bytes, big endian. Throws TokenError if the number does not fit.
inline Bytes bigEndian(const Number& number, std::size_t size)
{
    const std::size_t used = (bitLength(number) + 7) / 8;
    if (used > size) throw TokenError(Result::badData, "a number does not fit its field");
    Bytes bytes(size);
    if (used != 0) export_bits(number, bytes.end() - static_cast<std::ptrdiff_t>(used), 8);
    return bytes;
}

// Returns the remainder from 0 to modulus - 1, also for a negative number.
inline Number reduced(const Number& number, const Number& modulus)
{
    Number rest = number % modulus;
    if (rest < 0) rest += modulus;
    return rest;
}

inline Number inverse(const Number& number, const Number& prime)
{
    return powm(reduced(number, prime), prime - 2, prime);
}

} // namespace quelta::softtoken
