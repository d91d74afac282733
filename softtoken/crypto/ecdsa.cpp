#include "crypto/ecdsa.h"

#include "common/hex.h"
#include "crypto/big_number.h"
#include "crypto/primitives.h"
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
    return numberFrom(fromHex(hex).value_or(Bytes()));
}

// In Jacobian coordinates, as forms modulo the field's prime; the point at infinity has z = 0.
struct Point {
    Number x, y, z;
    bool isInfinity() const { return z.empty(); }
};

class CurveArithmetic {
public:
    explicit CurveArithmetic(const Curve& curve)
        : field(constant(curve.prime)),
          order(constant(curve.order)),
          coefficientB(field.toForm(constant(curve.coefficientB))),
          generator{field.toForm(constant(curve.generatorX)), field.toForm(constant(curve.generatorY)), field.one()},
          curve_(curve)
    {}

    Point twice(const Point& point) const;
    Point add(const Point& left, const Point& right) const;
    Point multiply(const Point& point, const Number& scalar) const;
    Number affineX(const Point& point) const;
    Bytes encode(const Point& point) const;
    std::optional<Point> decode(ByteView bytes) const;
    Number numberOfDigest(ByteView digest) const;

    const Modulus field;
    const Modulus order;
    const Number coefficientB;
    const Point generator;

private:
    Number square(const Number& number) const { return field.multiply(number, number); }
    Number timesSmall(const Number& number, int factor) const;

    const Curve& curve_;
};

Number CurveArithmetic::timesSmall(const Number& number, int factor) const
{
    Number result = number;
    for (int i = 1; i < factor; ++i) result = field.add(result, number);
    return result;
}

// The curves' first coefficient is -3, hence the product of the difference and the sum.
Point CurveArithmetic::twice(const Point& point) const
{
    if (point.isInfinity() || point.y.empty()) return {};
    const Number delta = square(point.z);
    const Number gamma = square(point.y);
    const Number beta = field.multiply(point.x, gamma);
    const Number alpha = timesSmall(field.multiply(field.subtract(point.x, delta), field.add(point.x, delta)), 3);
    const Number fourBeta = timesSmall(beta, 4);
    Point result;
    result.x = field.subtract(square(alpha), field.add(fourBeta, fourBeta));
    result.z = timesSmall(field.multiply(point.y, point.z), 2);
    result.y = field.subtract(field.multiply(alpha, field.subtract(fourBeta, result.x)), timesSmall(square(gamma), 8));
    return result;
}

Point CurveArithmetic::add(const Point& left, const Point& right) const
{
    if (left.isInfinity()) return right;
    if (right.isInfinity()) return left;
    const Number leftZ2 = square(left.z);
    const Number rightZ2 = square(right.z);
    const Number leftX = field.multiply(left.x, rightZ2);
    const Number leftY = field.multiply(field.multiply(left.y, right.z), rightZ2);
    const Number stepX = field.subtract(field.multiply(right.x, leftZ2), leftX);
    const Number stepY = field.subtract(field.multiply(field.multiply(right.y, left.z), leftZ2), leftY);
    if (stepX.empty()) return stepY.empty() ? twice(left) : Point{};

    const Number stepX2 = square(stepX);
    const Number stepX3 = field.multiply(stepX, stepX2);
    const Number middle = field.multiply(leftX, stepX2);
    Point result;
    result.x = field.subtract(field.subtract(square(stepY), stepX3), field.add(middle, middle));
    result.y = field.subtract(field.multiply(stepY, field.subtract(middle, result.x)), field.multiply(leftY, stepX3));
    result.z = field.multiply(field.multiply(left.z, right.z), stepX);
    return result;
}

Point CurveArithmetic::multiply(const Point& point, const Number& scalar) const
{
    Point result;
    for (std::size_t bit = bitLength(scalar); bit-- > 0;) {
        result = twice(result);
        if (bitAt(scalar, bit)) result = add(result, point);
    }
    return result;
}

Number CurveArithmetic::affineX(const Point& point) const
{
    const Number inverse = field.toForm(field.inverse(field.fromForm(point.z)));
    return field.fromForm(field.multiply(point.x, square(inverse)));
}

Bytes CurveArithmetic::encode(const Point& point) const
{
    const Number inverse = field.toForm(field.inverse(field.fromForm(point.z)));
    const Number y = field.multiply(field.multiply(point.y, square(inverse)), inverse);
    Bytes bytes{0x04};
    for (const Number& coordinate : {affineX(point), field.fromForm(y)})
        append(bytes, bigEndian(coordinate, curve_.coordinateSize()));
    return bytes;
}

std::optional<Point> CurveArithmetic::decode(ByteView bytes) const
{
    const std::size_t size = curve_.coordinateSize();
    if (bytes.size() != 1 + 2 * size || bytes[0] != 0x04) return std::nullopt;
    const Number plainX = numberFrom(bytes.subspan(1, size));
    const Number plainY = numberFrom(bytes.subspan(1 + size));
    if (compare(plainX, field.value()) >= 0 || compare(plainY, field.value()) >= 0) return std::nullopt;
    Point point{field.toForm(plainX), field.toForm(plainY), field.one()};
    const Number cube = field.multiply(square(point.x), point.x);
    const Number right = field.add(field.subtract(cube, timesSmall(point.x, 3)), coefficientB);
    if (compare(square(point.y), right) != 0) return std::nullopt;
    return point;
}

// The leftmost bits of the digest, as many as the order has.
Number CurveArithmetic::numberOfDigest(ByteView digest) const
{
    const std::size_t orderBits = bitLength(order.value());
    const std::size_t surplus = digest.size() * 8 > orderBits ? digest.size() * 8 - orderBits : 0;
    return remainder(shiftedRight(numberFrom(digest), surplus), order.value());
}

Number requireScalar(const CurveArithmetic& arithmetic, ByteView scalar)
{
    Number number = numberFrom(scalar);
    if (number.empty() || compare(number, arithmetic.order.value()) >= 0)
        throw TokenError(Result::badData, "the private key is not a number of its curve");
    return number;
}

} // namespace

const Curve* curveOfOid(std::string_view oid)
{
    for (const Curve& curve : curves)
        if (curve.oid == oid) return &curve;
    return nullptr;
}

const Curve* curveOfAlgorithm(std::uint32_t algorithm)
{
    for (const Curve& curve : curves)
        if (curve.algorithm == algorithm) return &curve;
    return nullptr;
}

// Eight bytes more than the order has, so that the remainder favours no value noticeably.
Bytes newScalar(const Curve& curve)
{
    const Number last = difference(CurveArithmetic(curve).order.value(), Number{1});
    const Number below = remainder(numberFrom(randomBytes(curve.coordinateSize() + 8)), last);
    return bigEndian(sum(below, Number{1}), curve.coordinateSize());
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
    const Modulus& order = arithmetic.order;
    const Number secret = requireScalar(arithmetic, scalar);
    const Number message = arithmetic.numberOfDigest(digest);
    for (;;) {
        const Number once = numberFrom(newScalar(curve));
        const Number r = remainder(arithmetic.affineX(arithmetic.multiply(arithmetic.generator, once)), order.value());
        const Number s = order.times(order.inverse(once), order.add(message, order.times(r, secret)));
        if (r.empty() || s.empty()) continue;
        Bytes signature = bigEndian(r, curve.coordinateSize());
        append(signature, bigEndian(s, curve.coordinateSize()));
        return signature;
    }
}

bool ecdsaVerify(const Curve& curve, ByteView encodedPoint, ByteView digest, ByteView signature)
{
    const CurveArithmetic arithmetic(curve);
    const Modulus& order = arithmetic.order;
    const std::optional<Point> point = arithmetic.decode(encodedPoint);
    if (!point || signature.size() != 2 * curve.coordinateSize()) return false;
    const Number r = numberFrom(signature.first(curve.coordinateSize()));
    const Number s = numberFrom(signature.subspan(curve.coordinateSize()));
    for (const Number& part : {r, s})
        if (part.empty() || compare(part, order.value()) >= 0) return false;

    const Number inverse = order.inverse(s);
    const Point ofMessage = arithmetic.multiply(arithmetic.generator, order.times(arithmetic.numberOfDigest(digest), inverse));
    const Point ofKey = arithmetic.multiply(*point, order.times(r, inverse));
    const Point both = arithmetic.add(ofMessage, ofKey);
    return !both.isInfinity() && compare(remainder(arithmetic.affineX(both), order.value()), r) == 0;
}

} // namespace quelta::softtoken
