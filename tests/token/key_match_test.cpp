#include "support/fake_device_library.h"
#include "support/guarded_buffer.h"

#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstring>

namespace quelta::test {

namespace {

constexpr std::int32_t lying[] = {-1, INT_MIN, INT_MAX};

// A record whose end is the end of what may be read.
template <class Record>
struct Guarded {
    GuardedBuffer memory{sizeof(Record), 'r'};
    Record& record = *reinterpret_cast<Record*>(memory.data());
};

// Only a length within the field counts.
template <class View>
void expectBounds(std::int32_t& length, std::size_t room, View view)
{
    for (const std::int32_t value : lying) {
        length = value;
        EXPECT_EQ(view().size(), 0U) << value;
    }
    length = static_cast<std::int32_t>(room) + 1;
    EXPECT_EQ(view().size(), 0U) << "one too many";
    length = static_cast<std::int32_t>(room);
    EXPECT_EQ(view().size(), room) << "the whole field";
    length = 0;
    EXPECT_EQ(view().size(), 0U);
}

QueltaCertificate certificateWith(ByteView reference, std::string_view label)
{
    QueltaCertificate record{};
    setReference(record, reference);
    setText(record.label, label);
    return record;
}

TokenKey& fill(TokenKey& key, ByteView reference, std::string_view label)
{
    key.objectId.assign(reference);
    key.label.assign(label);
    return key;
}

} // namespace

TEST(KeyMatch, LengthsOutsideTheirFieldReadAsEmpty)
{
    Guarded<QueltaKeyPair> pair;
    expectBounds(pair.record.publicKeyLength, 1024, [&] { return publicKeyOf(pair.record); });
    expectBounds(pair.record.keyReferenceLength, 128, [&] { return keyReferenceOf(pair.record); });
    Guarded<QueltaCertificate> certificate;
    expectBounds(certificate.record.certificateLength, 3072, [&] { return certificateOf(certificate.record); });
    expectBounds(certificate.record.keyReferenceLength, 128, [&] { return keyReferenceOf(certificate.record); });
    Guarded<QueltaSymmetricKey> key;
    expectBounds(key.record.keyReferenceLength, 128, [&] { return keyReferenceOf(key.record); });
}

TEST(KeyMatch, LabelsEndWithTheirFieldIfNotBefore)
{
    Guarded<QueltaCertificate> certificate;
    EXPECT_EQ(labelOf(certificate.record), std::string(152, 'r')) << "the last field, and the page ends with it";
    Guarded<QueltaKeyPair> pair;
    EXPECT_EQ(labelOf(pair.record).size(), 128U);
    pair.record.label[3] = '\0';
    EXPECT_EQ(labelOf(pair.record), "rrr");
    Guarded<QueltaSymmetricKey> key;
    EXPECT_EQ(labelOf(key.record).size(), 128U);
}

TEST(KeyMatch, CertificateBelongsByLabelOrByReference)
{
    struct Row {
        const char* what;
        Bytes reference;
        const char* label;
        bool belongs;
    };
    TokenKey key;
    fill(key, Bytes{1, 2, 3}, "signer");
    for (const Row& row : {Row{"label alone", {9}, "signer", true}, Row{"reference alone", {1, 2, 3}, "other", true},
                           Row{"reference, no label", {1, 2, 3}, "", true}, Row{"neither", {9}, "other", false},
                           Row{"longer label", {9}, "signers", false}, Row{"another case", {9}, "Signer", false},
                           Row{"shorter reference", {1, 2}, "", false}, Row{"longer reference", {1, 2, 3, 4}, "", false},
                           Row{"no reference", {}, "", false}}) {
        EXPECT_EQ(belongsTo(certificateWith(row.reference, row.label), key), row.belongs) << row.what;
    }
}

TEST(KeyMatch, EmptyLabelsMatchNothingAndEmptyReferencesEachOther)
{
    TokenKey key;
    fill(key, {}, "");
    EXPECT_FALSE(belongsTo(certificateWith(Bytes{1}, ""), key)) << "two empty labels";
    EXPECT_TRUE(belongsTo(certificateWith({}, "other"), key)) << "two references of length zero";
    auto lyingRecord = certificateWith(Bytes{1}, "other");
    lyingRecord.keyReferenceLength = 129;
    EXPECT_TRUE(belongsTo(lyingRecord, key)) << "a length out of its field is as good as none";
}

TEST(KeyMatch, LargestFieldsAreCopiedWholeAndLyingOnesNotAtAll)
{
    Guarded<QueltaKeyPair> pair;
    pair.record.publicKeyLength = 1024;
    pair.record.keyReferenceLength = 128;
    TokenKey key;
    copyIdentity(pair.record, key);
    EXPECT_EQ(key.publicKey.size(), 1024U);
    EXPECT_EQ(key.objectId.size(), 128U);
    EXPECT_EQ(key.label.size(), 128U);
    EXPECT_EQ(key.keyPairFlag, 'r');
    EXPECT_EQ(keyName(pair.record), "72727272727272727272727272727272");

    pair.record.publicKeyLength = 1025;
    pair.record.keyReferenceLength = -1;
    copyIdentity(pair.record, key);
    EXPECT_TRUE(key.publicKey.empty());
    EXPECT_TRUE(key.objectId.empty());
}

TEST(KeyMatch, OnlyKnownAlgorithmsHaveBits)
{
    EXPECT_EQ(bitsOfAlgorithm(algorithmRsa1024), 1024U);
    EXPECT_EQ(bitsOfAlgorithm(algorithmP521), 521U);
    for (const std::uint32_t unknown : {0U, 8U, UINT_MAX}) {
        EXPECT_EQ(bitsOfAlgorithm(unknown), 0U);
        EXPECT_FALSE(isEllipticCurve(unknown));
    }
    EXPECT_EQ(rsaAlgorithmOfBits(3072), algorithmRsa3072);
    EXPECT_EQ(rsaAlgorithmOfBits(256), std::nullopt) << "a curve's size is no RSA size";
    EXPECT_EQ(rsaAlgorithmOfBits(0), std::nullopt);
}

} // namespace quelta::test
