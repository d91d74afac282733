#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

using ::testing::Contains;
using ::testing::Not;

struct MadeKey {
    const wchar_t* algorithm;
    DWORD askedBits;
    DWORD bits;
    std::size_t signatureSize;
};

const MadeKey madeKeys[] = {
    {L"RSA", 0, 2048, 256}, {L"RSA", 1024, 1024, 128}, {L"ECDSA_P256", 0, 256, 64}, {L"ECDSA_P521", 0, 521, 132}};

std::wstring wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

} // namespace

class KspKeys : public EndToEndTest {};

TEST_F(KspKeys, EnumeratesAndOpensWhatTheTokenHolds)
{
    const KeyStorage storage;
    const auto names = storage.names();
    EXPECT_EQ(names.size(), 7U);
    const struct {
        std::string label;
        std::wstring algorithm;
        DWORD bits;
    } rows[] = {{"rsa1024", L"RSA", 1024}, {"rsa4096", L"RSA", 4096}, {"p256", L"ECDSA_P256", 256}, {"p521", L"ECDSA_P521", 521}};
    for (const auto& [label, algorithm, bits] : rows) {
        EXPECT_THAT(names, Contains(wide(keyName(label))));
        const StoredKey key = storage.openLabelled(label);
        EXPECT_EQ(key.text(L"Name"), wide(keyName(label)));
        EXPECT_EQ(key.text(L"Algorithm Name"), algorithm);
        EXPECT_EQ(key.number(L"Length"), bits);
    }
}

TEST_F(KspKeys, CertificateIsTheOneOfTheKey)
{
    const KeyStorage storage;
    for (const std::string label : {"rsa2048", "rsa4096", "p256"}) {
        folder.write("certificate", storage.openLabelled(label).property(L"SmartCardKeyCertificate"));
        EXPECT_TRUE(folder.shell("openssl x509 -inform DER -in certificate -noout -pubkey | cmp - $shared/" + label +
                                 ".pub.pem\nopenssl x509 -in $shared/" + label + ".leaf.pem -outform DER | cmp - certificate"));
    }
}

TEST_F(KspKeys, MadeKeysSignAndAreGoneWhenDeleted)
{
    for (const auto& [algorithm, askedBits, bits, signatureSize] : madeKeys) {
        std::wstring name;
        Bytes signature;
        const Bytes hash(32, 9);
        {
            const KeyStorage storage;
            storage.usePin();
            const StoredKey made = storage.create(algorithm);
            if (askedBits) made.set(L"Length", ByteView(reinterpret_cast<const unsigned char*>(&askedBits), sizeof askedBits));
            EXPECT_EQ(storage.names().size(), 7U);
            ASSERT_EQ(storage.table().FinalizeKey(storage.provider(), made.get(), 0), 0);
            EXPECT_EQ(made.number(L"Length"), bits);
            name = made.text(L"Name");
            signature = made.sign(hash, signatureSize);
        }
        // The module was unloaded in between: what is found now comes from the token.
        const KeyStorage storage;
        storage.usePin();
        ASSERT_THAT(storage.names(), Contains(name));
        const StoredKey found = storage.open(name);
        EXPECT_EQ(found.text(L"Algorithm Name"), algorithm);
        EXPECT_EQ(found.number(L"Length"), bits);
        EXPECT_EQ(found.verify(hash, signature), 0);
        EXPECT_EQ(found.verify(Bytes(32), signature), NTE_BAD_SIGNATURE);
        EXPECT_EQ(storage.table().DeleteKey(storage.provider(), found.get(), 0), 0);
        EXPECT_THAT(storage.names(), Not(Contains(name)));
    }
}

} // namespace quelta::test
