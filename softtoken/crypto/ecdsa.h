// ECDSA over the three curves of the token. Points travel uncompressed (04, x, y); signatures are r and s, one after the other,
// each as wide as the field.
#pragma once

#include "base/bytes.h"
#include "common/known_algorithms.h"

#include <cstdint>
#include <string_view>

namespace quelta::softtoken {

struct Curve : KnownCurve {
    std::uint32_t algorithm;
    std::string_view prime;
    std::string_view coefficientB;
    std::string_view order;
    std::string_view generatorX;
    std::string_view generatorY;
};

// Returns null if it is none of the three.
const Curve* curveOfOid(std::string_view oid);
const Curve* curveOfAlgorithm(std::uint32_t algorithm);

Bytes newScalar(const Curve& curve);
// Returns the public point of a scalar. Throws TokenError if the scalar is zero or not below the curve's order.
Bytes pointOfScalar(const Curve& curve, ByteView scalar);
bool isPointOnCurve(const Curve& curve, ByteView point);

Bytes ecdsaSign(const Curve& curve, ByteView scalar, ByteView digest);
bool ecdsaVerify(const Curve& curve, ByteView point, ByteView digest, ByteView signature);

} // namespace quelta::softtoken
