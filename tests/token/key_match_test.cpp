#include "support/fake_device_library.h"
#include "support/guarded_buffer.h"

#include "token/key_match.h"
#include "token/record_fields.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

// A record whose end is the end of what may be read.
template <class Record>
struct Guarded {
    GuardedBuffer memory{sizeof(Record), 'r'};
    Record& record = *reinterpret_cast<Record*>(memory.data());
};

TokenKey keyWith(ByteView reference, std::string_view label)
{
    TokenKey key;
    key.objectId.assign(reference);
    key.label.assign(label);
    return key;
}

} // namespace

TEST(KeyMatch, NoFieldIsReadBeyondItsEnd)
{
    EXPECT_EQ(labelOf(Guarded<QueltaCertificate>().record), std::string(152, 'r')) << "the last field, and the page ends with it";
    EXPECT_EQ(labelOf(Guarded<QueltaSymmetricKey>().record).size(), 128U);
    Guarded<QueltaKeyPair> pair;
    EXPECT_EQ(labelOf(pair.record).size(), 128U);
    pair.record.label[3] = '\0';
    EXPECT_EQ(labelOf(pair.record), "rrr");
    QueltaSymmetricKey key{};
    key.keyReferenceLength = 129;
    EXPECT_TRUE(keyReferenceOf(key).empty()) << "one more than the field holds";
}

TEST(KeyMatch, CertificateBelongsByLabelOrByReference)
{
    const TokenKey key = keyWith(Bytes{1, 2, 3}, "signer");
    const TokenKey nameless = keyWith({}, "");
    const struct {
        const char* what;
        const TokenKey& key;
        Bytes reference;
        const char* label;
        bool belongs;
    } rows[] = {
        {"label alone", key, {9}, "signer", true},
        {"reference alone", key, {1, 2, 3}, "other", true},
        {"longer label", key, {9}, "signers", false},
        {"longer reference", key, {1, 2, 3, 4}, "", false},
        {"two empty labels", nameless, {1}, "", false},
        {"two references of length zero", nameless, {}, "other", true},
        {"a length out of its field is as good as none", nameless, Bytes(129), "other", true},
    };
    for (const auto& row : rows) {
        QueltaCertificate record{};
        setReference(record, row.reference);
        setText(record.label, row.label);
        EXPECT_EQ(belongsTo(record, row.key), row.belongs) << row.what;
    }
}

} // namespace quelta::test
