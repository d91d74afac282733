#include "formats/certificate_maker.h"

#include "base/der.h"
#include "base/hex.h"
#include "common/bcrypt_calls.h"
#include "common/object_ids.h"
#include "crypto/key_encoding.h"
#include "crypto/primitives.h"
#include "crypto/rsa.h"
#include "formats/distinguished_name.h"
#include "token/device_records.h"

#include <ctime>

namespace quelta::softtoken {

namespace {

constexpr std::size_t authorityBits = 2048;
constexpr std::time_t day = 24 * 60 * 60;
// Validity begins a little earlier. Clocks differ, and a certificate that begins now might not be valid yet elsewhere.
constexpr std::time_t allowance = 10 * 60;

// The bits of X.509's KeyUsage, in its first byte.
constexpr unsigned digitalSignature = 0x80;
constexpr unsigned nonRepudiation = 0x40;
constexpr unsigned keyEncipherment = 0x20;
constexpr unsigned certificateSigning = 0x04;
constexpr unsigned listSigning = 0x02;

// The subject of a certificate: an authority, or the holder of the token's key.
struct Subject {
    Bytes name;
    PublicKey key;
    Bytes keyIdentifier() const { return digestOf(sha1, publicKeyBits(key)); }
};

struct Authority {
    RsaPrivate key = generateRsaKey(authorityBits);
    Subject subject;
    explicit Authority(const std::string& name) : subject{encodeName(name), key.shown} {}
};

Bytes utcTime(std::time_t time)
{
    std::tm parts{};
    gmtime_s(&parts, &time);
    char text[sizeof "YYMMDDhhmmssZ"];
    std::strftime(text, sizeof text, "%y%m%d%H%M%SZ", &parts);
    return der::element(der::tagUtcTime, toBytes(text));
}

Bytes extension(std::string_view oid, bool critical, ByteView value)
{
    const Bytes yes{0x01, 0x01, 0xFF};
    return der::sequence({der::oid(oid), critical ? ByteView(yes) : ByteView(), der::octetString(value)});
}

Bytes usageExtension(unsigned bits)
{
    unsigned char unused = 0;
    while ((bits >> unused & 1U) == 0) ++unused;
    return extension("2.5.29.15", true, der::bitString(Bytes{static_cast<unsigned char>(bits)}, unused));
}

// `below` is the encoded path length: the number of authorities that may stand below this one.
Bytes authorityExtensions(ByteView below)
{
    const Bytes yes{0x01, 0x01, 0xFF};
    return concat({extension("2.5.29.19", true, der::sequence({yes, below})), usageExtension(certificateSigning | listSigning)});
}

Bytes leafExtensions(std::uint32_t usage)
{
    const unsigned bits = ((usage & usageSigning) != 0 ? digitalSignature | nonRepudiation : 0U) |
                          ((usage & usageKeyExchange) != 0 ? keyEncipherment : 0U);
    // Client authentication and e-mail protection.
    const Bytes purposes = der::sequence({der::oid("1.3.6.1.5.5.7.3.2"), der::oid("1.3.6.1.5.5.7.3.4")});
    return concat(
        {extension("2.5.29.19", true, der::sequence({})), usageExtension(bits), extension("2.5.29.37", false, purposes)});
}

Bytes certify(const Authority& issuer, const Subject& subject, int years, ByteView extensions)
{
    const std::time_t begin = std::time(nullptr) - allowance;
    const Bytes algorithm = der::sequence({der::oid(oid::sha256WithRsa), der::null()});
    const Bytes identifiers = concat(
        {extension("2.5.29.14", false, der::octetString(subject.keyIdentifier())),
         extension("2.5.29.35", false, der::sequence({der::element(der::implicitTag(0), issuer.subject.keyIdentifier())}))});
    const Bytes content = der::sequence(
        {der::element(der::explicitTag(0), der::smallInteger(2)), der::unsignedInteger(randomBytes(16)), algorithm,
         issuer.subject.name, der::sequence({utcTime(begin), utcTime(begin + years * 365 * day)}), subject.name,
         encodePublicKey(subject.key), der::element(der::explicitTag(3), der::sequence({extensions, identifiers}))});
    return der::sequence({content, algorithm, der::bitString(rsaSign(issuer.key, digestOf(sha256, content)))});
}

} // namespace

MadeChain makeChain(const PublicKey& key, std::uint32_t usage, const std::string& subject)
{
    // Issuers are found by name, so two chains on one token must not share names.
    const std::string mark = toHex(randomBytes(4));
    const Authority root("CN=Quelta Software Token Root CA " + mark);
    const Authority issuing("CN=Quelta Software Token Issuing CA " + mark);
    return {certify(issuing, {encodeName(subject), key}, 1, leafExtensions(usage)),
            certify(root, issuing.subject, 2, authorityExtensions(der::smallInteger(0))),
            certify(root, root.subject, 3, authorityExtensions({}))};
}

} // namespace quelta::softtoken
