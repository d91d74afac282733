#include "instant_token.h"

#include "base/der.h"
#include "common/object_ids.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace quelta::bench {

namespace {

Bytes modulusOf(unsigned number)
{
    Bytes modulus(256);
    std::ranges::generate(modulus, [state = number * 2654435761U + 1]() mutable {
        state = state * 1664525U + 1013904223U;
        return static_cast<unsigned char>(state >> 24);
    });
    // The modulus has no leading zero, is not taken for DER, and is odd.
    modulus.front() = 0xC3;
    modulus.back() |= 1;
    return modulus;
}

Bytes nameOf(const std::string& text)
{
    const Bytes attribute = der::sequence({der::oid("2.5.4.3"), der::element(der::tagUtf8String, toBytes(text))});
    return der::sequence({der::setOf({attribute})});
}

Bytes rsaKeyInfo(ByteView modulus)
{
    const Bytes key = der::sequence({der::unsignedInteger(modulus), der::unsignedInteger(Bytes{1, 0, 1})});
    return der::sequence({der::sequence({der::oid(oid::rsaEncryption), der::null()}), der::bitString(key)});
}

Bytes certificateFor(unsigned serial, const std::string& subject, const std::string& issuer, ByteView modulus)
{
    const Bytes algorithm = der::sequence({der::oid("1.2.840.113549.1.1.11"), der::null()});
    const Bytes validity = der::sequence({der::element(der::tagUtcTime, toBytes(std::string_view("200101000000Z"))),
                                          der::element(der::tagUtcTime, toBytes(std::string_view("491231235959Z")))});
    const Bytes number = {static_cast<unsigned char>(serial >> 8), static_cast<unsigned char>(serial)};
    const Bytes body = der::sequence({der::element(der::explicitTag(0), der::smallInteger(2)), der::unsignedInteger(number),
                                      algorithm, nameOf(issuer), validity, nameOf(subject), rsaKeyInfo(modulus)});
    return der::sequence({body, algorithm, der::bitString(Bytes(256, 0x5A))});
}

template <std::size_t Size>
std::int32_t put(unsigned char (&field)[Size], ByteView bytes)
{
    std::ranges::copy(bytes.first(std::min(bytes.size(), Size)), field);
    return static_cast<std::int32_t>(bytes.size());
}

QueltaCertificate recordOf(ByteView der, ByteView reference)
{
    QueltaCertificate record{};
    record.certificateLength = put(record.certificate, der);
    record.keyReferenceLength = put(record.keyReference, reference);
    return record;
}

QueltaKeyPair keyPair(unsigned number)
{
    QueltaKeyPair pair{};
    for (std::size_t i = 0; i < keyIdSize; ++i) pair.keyId[i] = static_cast<unsigned char>(number >> 8 * (i % 4));
    pair.publicKeyLength = put(pair.publicKey, modulusOf(number));
    pair.keyReferenceLength = put(pair.keyReference, ByteView(pair.keyId));
    std::snprintf(pair.label, sizeof pair.label, "key %u", number);
    pair.usage = usageBoth;
    pair.algorithm = algorithmRsa2048;
    return pair;
}

std::string issuerName(unsigned level)
{
    return "Issuer " + std::to_string(level);
}

// Returns the issuers, from the one for the keys up to the root.
std::vector<QueltaCertificate> issuers(unsigned count)
{
    std::vector<QueltaCertificate> records;
    for (unsigned level = 1; level <= count; ++level) {
        const std::string issuer = issuerName(std::min(level + 1, count));
        records.push_back(recordOf(certificateFor(level, issuerName(level), issuer, modulusOf(0x8000 + level)), {}));
    }
    return records;
}

} // namespace

InstantToken instantToken(unsigned keys, unsigned depth, bool issuersFirst)
{
    InstantToken token;
    const auto above = issuers(depth - 1);
    if (issuersFirst) token.certificates = above;
    for (unsigned number = 1; number <= keys; ++number) {
        const QueltaKeyPair& pair = token.keyPairs.emplace_back(keyPair(number));
        const std::string subject = "Holder " + std::to_string(number);
        const Bytes der = certificateFor(0x100 + number, subject, above.empty() ? subject : issuerName(1), modulusOf(number));
        QueltaCertificate& record = token.certificates.emplace_back(recordOf(der, ByteView(pair.keyId)));
        std::memcpy(record.label, pair.label, sizeof pair.label);
        token.publicKeys.emplace(toText(der), modulusOf(number));
    }
    if (!issuersFirst) token.certificates.insert(token.certificates.end(), above.begin(), above.end());
    return token;
}

} // namespace quelta::bench
