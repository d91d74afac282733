#include "crypto/big_number.h"

#include "base/token_error.h"

#include <algorithm>
#include <array>

namespace quelta::softtoken {

namespace {

constexpr std::size_t limbBits = 32;
constexpr std::size_t windowBits = 4;

std::uint32_t low(std::uint64_t value)
{
    return static_cast<std::uint32_t>(value & 0xFFFFFFFFU);
}
std::uint32_t high(std::uint64_t value)
{
    return static_cast<std::uint32_t>(value >> limbBits);
}

void trim(Number& number)
{
    while (!number.empty() && number.back() == 0) number.pop_back();
}

std::uint32_t limbAt(const Number& number, std::size_t index)
{
    return index < number.size() ? number[index] : 0;
}

void doubleInPlace(Number& number)
{
    std::uint32_t carry = 0;
    for (std::uint32_t& limb : number) {
        const std::uint32_t next = limb >> (limbBits - 1);
        limb = (limb << 1) | carry;
        carry = next;
    }
    if (carry != 0) number.push_back(carry);
}

void subtractInPlace(Number& left, const Number& right)
{
    std::uint64_t borrow = 0;
    for (std::size_t i = 0; i < left.size(); ++i) {
        const std::uint64_t step = std::uint64_t{left[i]} - limbAt(right, i) - borrow;
        left[i] = low(step);
        borrow = (step >> limbBits) & 1;
    }
    trim(left);
}

} // namespace

Number numberFrom(ByteView bytes)
{
    Number number((bytes.size() + 3) / 4);
    for (std::size_t i = 0; i < bytes.size(); ++i) number[i / 4] |= std::uint32_t{bytes[bytes.size() - 1 - i]} << (i % 4 * 8);
    trim(number);
    return number;
}

Bytes bigEndian(const Number& number, std::size_t size)
{
    if (bitLength(number) > size * 8) throw TokenError(Result::badData, "a number does not fit its field");
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[size - 1 - i] = static_cast<unsigned char>(limbAt(number, i / 4) >> (i % 4 * 8));
    return bytes;
}

int compare(const Number& left, const Number& right)
{
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    for (std::size_t i = left.size(); i-- > 0;)
        if (left[i] != right[i]) return left[i] < right[i] ? -1 : 1;
    return 0;
}

std::size_t bitLength(const Number& number)
{
    if (number.empty()) return 0;
    std::size_t bits = (number.size() - 1) * limbBits;
    for (std::uint32_t top = number.back(); top != 0; top >>= 1) ++bits;
    return bits;
}

bool bitAt(const Number& number, std::size_t index)
{
    return ((limbAt(number, index / limbBits) >> (index % limbBits)) & 1U) != 0;
}

Number sum(const Number& left, const Number& right)
{
    Number result(std::max(left.size(), right.size()) + 1);
    std::uint64_t carry = 0;
    for (std::size_t i = 0; i < result.size(); ++i) {
        carry += std::uint64_t{limbAt(left, i)} + limbAt(right, i);
        result[i] = low(carry);
        carry = high(carry);
    }
    trim(result);
    return result;
}

Number difference(const Number& left, const Number& right)
{
    Number result = left;
    subtractInPlace(result, right);
    return result;
}

Number product(const Number& left, const Number& right)
{
    Number result(left.size() + right.size());
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::uint64_t carry = 0;
        for (std::size_t j = 0; j < right.size(); ++j) {
            carry += std::uint64_t{left[i]} * right[j] + result[i + j];
            result[i + j] = low(carry);
            carry = high(carry);
        }
        result[i + right.size()] = low(carry);
    }
    trim(result);
    return result;
}

Number remainder(const Number& number, const Number& divisor)
{
    if (divisor.empty()) throw TokenError(Result::badData, "division by zero");
    Number rest;
    for (std::size_t bit = bitLength(number); bit-- > 0;) {
        doubleInPlace(rest);
        if (bitAt(number, bit)) {
            if (rest.empty()) rest.push_back(0);
            rest[0] |= 1U;
        }
        if (compare(rest, divisor) >= 0) subtractInPlace(rest, divisor);
    }
    return rest;
}

Number shiftedRight(const Number& number, std::size_t bits)
{
    const std::size_t limbs = bits / limbBits;
    const std::size_t rest = bits % limbBits;
    Number result;
    for (std::size_t i = limbs; i < number.size(); ++i) {
        const std::uint64_t pair = (std::uint64_t{limbAt(number, i + 1)} << limbBits) | number[i];
        result.push_back(low(pair >> rest));
    }
    trim(result);
    return result;
}

Modulus::Modulus(const Number& odd) : value_(odd)
{
    if (odd.empty() || (odd[0] & 1U) == 0) throw TokenError(Result::badData, "a key's modulus is even");
    // Each round doubles the number of correct low bits of the inverse, beginning with three.
    std::uint32_t inverse = odd[0];
    for (int round = 0; round < 4; ++round) inverse *= 2U - odd[0] * inverse;
    negatedInverse_ = 0U - inverse;

    Number power(value_.size() + 1);
    power.back() = 1;
    one_ = remainder(power, value_);
    square_ = one_;
    for (std::size_t bit = 0; bit < value_.size() * limbBits; ++bit) square_ = add(square_, square_);
}

Number Modulus::multiply(const Number& left, const Number& right) const
{
    const std::size_t count = value_.size();
    Number work(count + 2);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t factor = limbAt(left, i);
        std::uint64_t carry = 0;
        for (std::size_t j = 0; j < count; ++j) {
            carry += factor * limbAt(right, j) + work[j];
            work[j] = low(carry);
            carry = high(carry);
        }
        carry += work[count];
        work[count] = low(carry);
        work[count + 1] = high(carry);

        const std::uint64_t clearing = work[0] * negatedInverse_;
        carry = high(clearing * value_[0] + work[0]);
        for (std::size_t j = 1; j < count; ++j) {
            carry += clearing * value_[j] + work[j];
            work[j - 1] = low(carry);
            carry = high(carry);
        }
        carry += work[count];
        work[count - 1] = low(carry);
        work[count] = work[count + 1] + high(carry);
        work[count + 1] = 0;
    }
    trim(work);
    if (compare(work, value_) >= 0) subtractInPlace(work, value_);
    return work;
}

Number Modulus::add(const Number& left, const Number& right) const
{
    Number result = sum(left, right);
    if (compare(result, value_) >= 0) subtractInPlace(result, value_);
    return result;
}

Number Modulus::subtract(const Number& left, const Number& right) const
{
    return compare(left, right) >= 0 ? difference(left, right) : difference(sum(left, value_), right);
}

Number Modulus::powerOfForm(const Number& form, const Number& exponent) const
{
    std::array<Number, std::size_t{1} << windowBits> table;
    table[0] = one_;
    for (std::size_t i = 1; i < table.size(); ++i) table[i] = multiply(table[i - 1], form);

    Number result = one_;
    for (std::size_t window = (bitLength(exponent) + windowBits - 1) / windowBits; window-- > 0;) {
        std::size_t index = 0;
        for (std::size_t bit = windowBits; bit-- > 0;) {
            result = multiply(result, result);
            index = index * 2 + (bitAt(exponent, window * windowBits + bit) ? 1 : 0);
        }
        result = multiply(result, table[index]);
    }
    return result;
}

Number Modulus::power(const Number& base, const Number& exponent) const
{
    return fromForm(powerOfForm(toForm(base), exponent));
}

Number Modulus::inverse(const Number& number) const
{
    return power(number, difference(value_, Number{2}));
}

} // namespace quelta::softtoken
