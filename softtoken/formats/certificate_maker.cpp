#include "formats/certificate_maker.h"

#include "crypto/primitives.h"
#include "formats/byte_text.h"
#include "formats/der.h"
#include "formats/distinguished_name.h"
#include "token/device_records.h"

#include <chrono>

namespace quelta::softtoken {

namespace {

using Time = std::chrono::sys_seconds;

constexpr std::string_view oidSha256WithRsa = "1.2.840.113549.1.1.11";
constexpr std::string_view oidEcdsaWithSha256 = "1.2.840.10045.4.3.2";
constexpr std::string_view oidBasicConstraints = "2.5.29.19";
constexpr std::string_view oidKeyUsage = "2.5.29.15";
constexpr std::string_view oidExtendedKeyUsage = "2.5.29.37";
constexpr std::string_view oidSubjectKeyId = "2.5.29.14";
constexpr std::string_view oidAuthorityKeyId = "2.5.29.35";
constexpr std::string_view oidClientAuth = "1.3.6.1.5.5.7.3.2";
constexpr std::string_view oidEmailProtection = "1.3.6.1.5.5.7.3.4";

constexpr std::chrono::days year{365};
constexpr std::size_t serialSize = 16;

// RFC 5280, 4.2.1.3: the first bit is the most significant one of the first byte.
enum KeyUsageBit : unsigned char {
    digitalSignature = 0x80,
    nonRepudiation = 0x40,
    keyEncipherment = 0x20,
    keyCertSign = 0x04,
    crlSign = 0x02,
};

struct Authority {
    PrivateKey key;
    Bytes name;
};

// What differs from one certificate of the chain to the next.
struct Content {
    PublicKey key;
    Bytes subject;
    Time begin, end;
    Bytes extensions;
};

std::string digits(int value, std::size_t width)
{
    std::string text = std::to_string(value);
    return std::string(width > text.size() ? width - text.size() : 0, '0') + text;
}

// Two digits for the year up to 2049, four from then on (RFC 5280, 4.1.2.5).
Bytes encodeTime(Time time)
{
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    const int yearNumber = static_cast<int>(date.year());
    const bool twoDigits = yearNumber < 2050;
    const auto small = [](auto value) { return digits(static_cast<int>(value), 2); };
    const std::string text = (twoDigits ? small(yearNumber % 100) : digits(yearNumber, 4)) +
                             small(static_cast<unsigned>(date.month())) + small(static_cast<unsigned>(date.day())) +
                             small(clock.hours().count()) + small(clock.minutes().count()) + small(clock.seconds().count()) + "Z";
    return derElement(twoDigits ? tag::utcTime : tag::generalizedTime, bytesOf(text));
}

Bytes extension(std::string_view oid, bool critical, ByteView value)
{
    const Bytes criticalFlag = critical ? derElement(tag::boolean, Bytes{0xFF}) : Bytes{};
    return derSequence({derObjectId(oid), criticalFlag, derOctetString(value)});
}

Bytes keyUsage(unsigned int bits)
{
    unsigned char unused = 0;
    while (((bits >> unused) & 1U) == 0) ++unused;
    return extension(oidKeyUsage, true, derBitString(Bytes{static_cast<unsigned char>(bits)}, unused));
}

Bytes keyIdentifier(const PublicKey& key)
{
    return digest(sha1, publicKeyBits(key));
}

Bytes keyIdentifiers(const PublicKey& subject, const PublicKey& issuer)
{
    const Bytes authority = derSequence({derElement(tag::context(0), keyIdentifier(issuer))});
    return derJoined({extension(oidSubjectKeyId, false, derOctetString(keyIdentifier(subject))),
                      extension(oidAuthorityKeyId, false, authority)});
}

Bytes rootExtensions()
{
    const Bytes isAuthority = derSequence({derElement(tag::boolean, Bytes{0xFF})});
    return derJoined({extension(oidBasicConstraints, true, isAuthority), keyUsage(keyCertSign | crlSign)});
}

Bytes issuingExtensions()
{
    const Bytes noFurtherAuthority = derSequence({derElement(tag::boolean, Bytes{0xFF}), derSmallInteger(0)});
    return derJoined({extension(oidBasicConstraints, true, noFurtherAuthority), keyUsage(keyCertSign | crlSign)});
}

Bytes leafExtensions(std::uint32_t usage)
{
    const unsigned int bits = ((usage & usageSigning) != 0 ? digitalSignature | nonRepudiation : 0U) |
                              ((usage & usageKeyExchange) != 0 ? unsigned{keyEncipherment} : 0U);
    return derJoined(
        {extension(oidBasicConstraints, true, derSequence({})), keyUsage(bits),
         extension(oidExtendedKeyUsage, false, derSequence({derObjectId(oidClientAuth), derObjectId(oidEmailProtection)}))});
}

Bytes signatureAlgorithm(const PrivateKey& key)
{
    if (std::holds_alternative<RsaPrivate>(key)) return derSequence({derObjectId(oidSha256WithRsa), derNull()});
    return derSequence({derObjectId(oidEcdsaWithSha256)});
}

// Certificates have the two numbers of an ECDSA signature in a sequence.
Bytes signatureOf(const PrivateKey& key, ByteView data)
{
    const Bytes raw = signDigest(key, digest(sha256, data));
    if (std::holds_alternative<RsaPrivate>(key)) return raw;
    const ByteView both = raw;
    return derSequence({derInteger(both.first(both.size() / 2)), derInteger(both.subspan(both.size() / 2))});
}

Bytes newSerial()
{
    Bytes serial = randomBytes(serialSize);
    serial[0] = static_cast<unsigned char>((serial[0] & 0x7F) | 0x40);
    return serial;
}

Bytes makeCertificate(const Authority& issuer, const Content& content)
{
    const Bytes algorithm = signatureAlgorithm(issuer.key);
    const Bytes extensions = derJoined({content.extensions, keyIdentifiers(content.key, publicOf(issuer.key))});
    const Bytes body =
        derSequence({derElement(tag::contextOf(0), derSmallInteger(2)), derInteger(newSerial()), algorithm, issuer.name,
                     derSequence({encodeTime(content.begin), encodeTime(content.end)}), content.subject,
                     encodePublicKey(content.key), derElement(tag::contextOf(3), derElement(tag::sequence, extensions))});
    return derSequence({body, algorithm, derBitString(signatureOf(issuer.key, body))});
}

} // namespace

Chain makeChain(const ChainRequest& request)
{
    const std::uint32_t authorityKind = std::holds_alternative<RsaPublic>(request.key) ? algorithmRsa2048 : algorithmP256;
    const Authority root{generateKey(authorityKind), encodeName(request.root)};
    const Authority issuing{generateKey(authorityKind), encodeName(request.issuer)};

    // Clocks differ: a certificate that begins now would not be valid yet elsewhere.
    const Time begin = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - std::chrono::minutes(10);
    const Time end = begin + std::chrono::days(request.days);
    Chain chain;
    chain.root = makeCertificate(root, {publicOf(root.key), root.name, begin, end + 2 * year, rootExtensions()});
    chain.issuing = makeCertificate(root, {publicOf(issuing.key), issuing.name, begin, end + year, issuingExtensions()});
    chain.leaf = makeCertificate(issuing, {request.key, encodeName(request.subject), begin, end, leafExtensions(request.usage)});
    return chain;
}

} // namespace quelta::softtoken
