#include "tools/token/key_choice.h"

#include "base/der.h"
#include "common/object_ids.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <gmock/gmock.h>

namespace quelta::tools {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

Bytes nameOf(std::string_view commonName)
{
    return der::sequence(
        {der::setOf({der::sequence({der::oid(oid::commonName), der::element(der::tagUtf8String, toBytes(commonName))})})});
}

Bytes keyUsage(unsigned char bits)
{
    const Bytes extension = der::sequence({der::oid("2.5.29.15"), der::octetString(der::bitString(Bytes{bits}))});
    return der::element(der::explicitTag(3), der::sequence({extension}));
}

// Nobody looks at the signature or the key.
CertificateContext certificate(std::string_view holder, std::string_view from, std::string_view until,
                               const Bytes& extensions = {})
{
    const Bytes algorithm = der::sequence({der::oid(oid::sha256WithRsa), der::null()});
    const Bytes key = der::sequence({der::unsignedInteger(Bytes(128, 0xC1)), der::smallInteger(3)});
    const Bytes validity = der::sequence(
        {der::element(der::tagGeneralizedTime, toBytes(from)), der::element(der::tagGeneralizedTime, toBytes(until))});
    const Bytes body = der::sequence(
        {der::element(der::explicitTag(0), der::smallInteger(2)), der::smallInteger(7), algorithm, nameOf("Issuer"), validity,
         nameOf(holder), der::sequence({der::sequence({der::oid(oid::rsaEncryption), der::null()}), der::bitString(key)}),
         extensions});
    return parseCertificate(der::sequence({body, algorithm, der::bitString(Bytes(128, 1))}));
}

KeyEntry key(const char* name, CertificateContext itsCertificate)
{
    return {name, std::move(itsCertificate), true, true};
}

constexpr auto past = "20200101000000Z";
constexpr auto lately = "20210101000000Z";
constexpr auto future = "20900101000000Z";

std::vector<KeyEntry> keys()
{
    std::vector<KeyEntry> all;
    all.push_back(key("12AB0000000000000000000000000001", certificate("Ada Ältere", past, lately)));
    all.push_back(key("12CD0000000000000000000000000002", certificate("Ada", past, future)));
    all.push_back(key("34AB0000000000000000000000000003", certificate("Bob", future, future)));
    all.push_back(key("34CD0000000000000000000000000004", certificate("Carol", past, future, keyUsage(0x20))));
    all.push_back(key("56AB0000000000000000000000000005", {}));
    return all;
}

TEST(KeyChoice, ANumberAnIdentifierAHolderOrAPartOfTheSubjectIsEnough)
{
    const struct {
        const char* wanted;
        std::size_t found;
    } rows[] = {{"1", 0},   {"5", 4},     {"12c", 1},   {"56", 4}, {"34AB0000000000000000000000000003", 2},
                {"ada", 1}, {"älter", 0}, {"CN=Bob", 2}};
    for (const auto& row : rows) EXPECT_EQ(findKey(keys(), row.wanted), row.found) << row.wanted;
}

TEST(KeyChoice, SigningPrefersAGoodCertificateAndRefusesOthersUnlessForced)
{
    EXPECT_EQ(chooseKey(keys(), signing, "").name.substr(0, 4), "12CD");
    const struct {
        const char* wanted;
        const char* reason;
    } rows[] = {{"1", "expired on 2021-01-01"}, {"3", "not valid before 2090"}, {"4", "does not allow the key to sign"}};
    for (const auto& row : rows) {
        EXPECT_THAT([&] { chooseKey(keys(), signing, row.wanted); }, ThrowsMessage<Failure>(HasSubstr(row.reason)));
        EXPECT_NO_THROW(chooseKey(keys(), signing, row.wanted, true));
        EXPECT_NO_THROW(chooseKey(keys(), decryption, row.wanted));
    }
    for (const char* wanted : {"1", "3"}) EXPECT_THROW(chooseKey(keys(), encryption, wanted), Failure) << "as for signing";
    EXPECT_NO_THROW(chooseKey(keys(), encryption, "4")) << "its certificate is for nothing else";
    EXPECT_THROW(chooseKey(keys(), signing, "5", true), Failure) << "without a certificate nothing can be signed";
}

TEST(Times, AreReadAsDayOrMomentAndNothingElse)
{
    EXPECT_EQ(timeText(timeOf("2026-11-25")), "2026-11-25 00:00:00 UTC");
    EXPECT_EQ(timeText(timeOf("2026-11-25T10:02:03Z")), "2026-11-25 10:02:03 UTC");
    EXPECT_EQ(timeText(timeOf("2026-11-25 10:02")), "2026-11-25 10:02:00 UTC");
    for (const char* text : {"", "today", "2026-11", "2026-13-01", "2026-11-25T", "2026-11-25 10", "2026-11-25x"})
        EXPECT_THROW(timeOf(text), Failure) << text;
}

TEST(Lines, AreBrokenBetweenWordsAndGoOnUnderTheSecondColumn)
{
    const struct {
        const char* line;
        const char* broken;
    } rows[] = {{"short enough 0123456", "short enough 0123456"},
                {"0123456789 0123456789", "0123456789\n0123456789"},
                {"ok  one two three four five", "ok  one two three\n    four five"},
                {"  one two three four five", "  one two three four\n  five"},
                {"0123456789012345678901234 ab", "0123456789012345678901234\nab"},
                {"", ""}};
    for (const auto& row : rows) EXPECT_EQ(wrapped(row.line, 20), row.broken);
}

} // namespace
} // namespace quelta::tools
