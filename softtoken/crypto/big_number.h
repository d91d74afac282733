// Arithmetic with whole numbers of a few thousand bits, for what bcrypt.dll can't be relied on to do: RSA without padding, OAEP,
// and the curves P-384 and P-521 (Wine's bcrypt has none of them). Timing tells about the operands: this token protects nothing.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <vector>

namespace quelta::softtoken {

// Least significant limb first, without zero limbs at the top; zero has no limb.
using Number = std::vector<std::uint32_t>;

Number numberFrom(ByteView bigEndian);
// Throws TokenError if it does not fit.
Bytes bigEndian(const Number& number, std::size_t size);

int compare(const Number& left, const Number& right);
std::size_t bitLength(const Number& number);
bool bitAt(const Number& number, std::size_t index);
Number sum(const Number& left, const Number& right);
// Left must not be smaller than right.
Number difference(const Number& left, const Number& right);
Number product(const Number& left, const Number& right);
Number remainder(const Number& number, const Number& divisor);
Number shiftedRight(const Number& number, std::size_t bits);

// Calculation modulo an odd number. Values that enter and leave are below the modulus; "form" is Montgomery's representation.
class Modulus {
public:
    explicit Modulus(const Number& odd);

    const Number& value() const { return value_; }
    Number toForm(const Number& number) const { return multiply(number, square_); }
    Number fromForm(const Number& form) const { return multiply(form, Number{1}); }
    const Number& one() const { return one_; }

    // The product of two forms is a form. Addition and subtraction work on plain values and on forms alike.
    Number multiply(const Number& left, const Number& right) const;
    Number add(const Number& left, const Number& right) const;
    Number subtract(const Number& left, const Number& right) const;
    Number powerOfForm(const Number& form, const Number& exponent) const;

    // On plain values.
    Number power(const Number& base, const Number& exponent) const;
    Number times(const Number& left, const Number& right) const { return fromForm(multiply(toForm(left), toForm(right))); }
    // Only for a prime modulus.
    Number inverse(const Number& number) const;

private:
    Number value_;
    std::uint32_t negatedInverse_ = 0;
    Number one_;
    Number square_;
};

} // namespace quelta::softtoken
