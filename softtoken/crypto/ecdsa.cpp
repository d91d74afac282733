#include "crypto/ecdsa.h"

#include "base/table.h"
#include "common/bcrypt_calls.h"
#include "crypto/big_number.h"
#include "token/device_records.h"

#include <optional>

namespace quelta::softtoken {

namespace {

constexpr Curve curves[] = {
    {knownCurves[0], algorithmP256, "FFFFFFFF00000001000000000000000000000000FFFFFFFFFFFFFFFFFFFFFFFF",
     "5AC635D8AA3A93E7B3EBBD55769886BC651D06B0CC53B0F63BCE3C3E27D2604B",
     "FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551",
     "6B17D1F2E12C4247F8BCE6E563A440F277037D812DEB33A0F4A13945D898C296",
     "4FE342E2FE1A7F9B8EE7EB4A7C0F9E162BCE33576B315ECECBB6406837BF51F5"},
    {knownCurves[1], algorithmP384,
     "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFEFFFFFFFF0000000000000000FFFFFFFF",
     "B3312FA7E23EE7E4988E056BE3F82D19181D9C6EFE8141120314088F5013875AC656398D8A2ED19D2A85C8EDD3EC2AEF",
     "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFC7634D81F4372DDF581A0DB248B0A77AECEC196ACCC52973",
     "AA87CA22BE8B05378EB1C71EF320AD746E1D3B628BA79B9859F741E082542A385502F25DBF55296C3A545E3872760AB7",
     "3617DE4A96262C6F5D9E98BF9292DC29F8F41DBD289A147CE9DA3113B5F0B8C00A60B1CE1D7E819D7A431D7C90EA0E5F"},
    {knownCurves[2], algorithmP521,
     "01FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"
     "FFFFFFFFFFFF",
     "0051953EB9618E1C9A1F929A21A0B68540EEA2DA725B99B315F3B8B489918EF109E156193951EC7E937B1652C0BD3BB1BF073573DF883D2C34F1EF45"
     "1FD46B503F00",
     "01FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFA51868783BF2F966B7FCC0148F709A5D03BB5C9B8899C47AEBB6F"
     "B71E91386409",
     "00C6858E06B70404E9CD9E3ECB662395B4429C648139053FB521F828AF606B4D3DBAA14B5E77EFE75928FE1DC127A2FFA8DE3348B3C1856A429BF97E"
     "7E31C2E5BD66",
     "011839296A789A3BC0045C8A5FB42C7D1BD998F54449579B446817AFBD17273E662C97EE72995EF42640C550B9013FAD0761353C7086A272C24088BE"
     "94769FD16650"},
};

Number constant(std::string_view hex)
{
    return Number("0x" + std::string(hex));
}

// Jacobian coordinates modulo the field's prime. They may be negative. The point at infinity has z = 0.
struct Point {
    Number x, y, z;
    bool isInfinity() const { return z == 0; }
};

class CurveArithmetic {
public:
    explicit CurveArithmetic(const Curve& curve)
        : order(constant(curve.order)),
          generator{constant(curve.generatorX), constant(curve.generatorY), 1},
          curve_(curve),
          prime_(constant(curve.prime))
    {}

    Point add(const Point& left, const Point& right) const;
    Point multiply(const Point& point, const Number& scalar) const;
    Number affineX(const Point& point) const;
    Bytes encode(const Point& point) const;
    std::optional<Point> decode(ByteView bytes) const;
    Number numberOfDigest(ByteView digest) const;

    const Number order;
    const Point generator;

private:
    Point twice(const Point& point) const;

    const Curve& curve_;
    const Number prime_;
};

// The curves' coefficient a is -3, hence the product of the difference and the sum.
Point CurveArithmetic::twice(const Point& point) const
{
    const Number delta = point.z * point.z % prime_;
    const Number gamma = point.y * point.y % prime_;
    const Number beta = point.x * gamma % prime_;
    const Number alpha = 3 * (point.x - delta) * (point.x + delta) % prime_;
    const Number x = (alpha * alpha - 8 * beta) % prime_;
    return {x, (alpha * (4 * beta - x) - 8 * gamma * gamma) % prime_, 2 * point.y * point.z % prime_};
}

Point CurveArithmetic::add(const Point& left, const Point& right) const
{
    if (left.isInfinity()) return right;
    if (right.isInfinity()) return left;
    const Number leftZ2 = left.z * left.z % prime_;
    const Number rightZ2 = right.z * right.z % prime_;
    const Number leftX = left.x * rightZ2 % prime_;
    const Number leftY = left.y * right.z % prime_ * rightZ2 % prime_;
    const Number stepX = (right.x * leftZ2 - leftX) % prime_;
    const Number stepY = (right.y * left.z % prime_ * leftZ2 - leftY) % prime_;
    if (stepX == 0) return stepY == 0 ? twice(left) : Point{};

    const Number stepX2 = stepX * stepX % prime_;
    const Number stepX3 = stepX * stepX2 % prime_;
    const Number middle = leftX * stepX2 % prime_;
    const Number x = (stepY * stepY - stepX3 - 2 * middle) % prime_;
    return {x, (stepY * (middle - x) - leftY * stepX3) % prime_, left.z * right.z % prime_ * stepX % prime_};
}

Point CurveArithmetic::multiply(const Point& point, const Number& scalar) const
{
    Point result;
    for (std::size_t bit = bitLength(scalar); bit-- > 0;) {
        result = twice(result);
        if (bit_test(scalar, static_cast<unsigned>(bit))) result = add(result, point);
    }
    return result;
}

Number CurveArithmetic::affineX(const Point& point) const
{
    return reduced(point.x * inverse(point.z * point.z, prime_), prime_);
}

Bytes CurveArithmetic::encode(const Point& point) const
{
    const Number y = reduced(point.y * inverse(point.z * point.z * point.z, prime_), prime_);
    Bytes bytes{0x04};
    for (const Number& coordinate : {affineX(point), y}) append(bytes, bigEndian(coordinate, curve_.coordinateSize()));
    return bytes;
}

std::optional<Point> CurveArithmetic::decode(ByteView bytes) const
{
    const std::size_t size = curve_.coordinateSize();
    if (bytes.size() != 1 + 2 * size || bytes[0] != 0x04) return std::nullopt;
    const Number x = numberFrom(bytes.subspan(1, size));
    const Number y = numberFrom(bytes.subspan(1 + size));
    if (x >= prime_ || y >= prime_) return std::nullopt;
    if ((y * y - (x * x * x - 3 * x + constant(curve_.coefficientB))) % prime_ != 0) return std::nullopt;
    return Point{x, y, 1};
}

// Returns the leftmost bits of the digest, as many as the order has.
Number CurveArithmetic::numberOfDigest(ByteView digest) const
{
    const std::size_t bits = digest.size() * 8;
    return (numberFrom(digest) >> (bits > curve_.bits ? bits - curve_.bits : 0)) % order;
}

Number requireScalar(const CurveArithmetic& arithmetic, ByteView scalar)
{
    Number number = numberFrom(scalar);
    if (number == 0 || number >= arithmetic.order)
        throw TokenError(Result::badData, "the private key is not a number of its curve");
    return number;
}

} // namespace

const Curve* curveOfOid(std::string_view oid)
{
    const auto* row = std::ranges::find(curves, oid, &Curve::oid);
    return row == std::end(curves) ? nullptr : row;
}

const Curve* curveOfAlgorithm(std::uint32_t algorithm)
{
    return findRow(curves, &Curve::algorithm, algorithm);
}

// Draws eight bytes more than the order has, so that the remainder is close to uniform.
Bytes newScalar(const Curve& curve)
{
    const Number below = numberFrom(randomBytes(curve.coordinateSize() + 8)) % (constant(curve.order) - 1);
    return bigEndian(below + 1, curve.coordinateSize());
}

Bytes pointOfScalar(const Curve& curve, ByteView scalar)
{
    const CurveArithmetic arithmetic(curve);
    return arithmetic.encode(arithmetic.multiply(arithmetic.generator, requireScalar(arithmetic, scalar)));
}

bool isPointOnCurve(const Curve& curve, ByteView point)
{
    return CurveArithmetic(curve).decode(point).has_value();
}

Bytes ecdsaSign(const Curve& curve, ByteView scalar, ByteView digest)
{
    const CurveArithmetic arithmetic(curve);
    const Number& order = arithmetic.order;
    const Number secret = requireScalar(arithmetic, scalar);
    const Number message = arithmetic.numberOfDigest(digest);
    for (;;) {
        const Number once = numberFrom(newScalar(curve));
        const Number r = arithmetic.affineX(arithmetic.multiply(arithmetic.generator, once)) % order;
        const Number s = inverse(once, order) * (message + r * secret) % order;
        if (r == 0 || s == 0) continue;
        return concat({bigEndian(r, curve.coordinateSize()), bigEndian(s, curve.coordinateSize())});
    }
}

bool ecdsaVerify(const Curve& curve, ByteView encodedPoint, ByteView digest, ByteView signature)
{
    const CurveArithmetic arithmetic(curve);
    const Number& order = arithmetic.order;
    const std::optional<Point> point = arithmetic.decode(encodedPoint);
    if (!point || signature.size() != 2 * curve.coordinateSize()) return false;
    const Number r = numberFrom(signature.first(curve.coordinateSize()));
    const Number s = numberFrom(signature.subspan(curve.coordinateSize()));
    if (r == 0 || s == 0 || r >= order || s >= order) return false;

    const Number inverseOfS = inverse(s, order);
    const Point ofMessage = arithmetic.multiply(arithmetic.generator, arithmetic.numberOfDigest(digest) * inverseOfS % order);
    const Point ofKey = arithmetic.multiply(*point, r * inverseOfS % order);
    const Point both = arithmetic.add(ofMessage, ofKey);
    return !both.isInfinity() && arithmetic.affineX(both) % order == r;
}

} // namespace quelta::softtoken
