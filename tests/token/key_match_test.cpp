#include "support/fake_device_library.h"
#include "support/guarded_buffer.h"

#include "token/key_match.h"
#include "token/record_fields.h"

#include <gmock/gmock.h>

#include <cstring>

namespace quelta::test {

namespace {

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
    // The label is the last field of a certificate, and the page ends with it.
    const GuardedBuffer certificate(sizeof(QueltaCertificate), 'r');
    EXPECT_EQ(labelOf(*reinterpret_cast<const QueltaCertificate*>(certificate.data())), std::string(152, 'r'));
    QueltaSymmetricKey key;
    std::memset(&key, 'r', sizeof key);
    EXPECT_EQ(labelOf(key).size(), 128U);
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
