#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

using ::testing::Contains;
using ::testing::Not;
using ::testing::UnorderedElementsAreArray;

struct MadeKey {
    const wchar_t* algorithm;
    DWORD askedBits;
    DWORD bits;
    std::size_t signatureSize;
};

const MadeKey madeKeys[] = {
    {L"RSA", 0, 2048, 256}, {L"RSA", 1024, 1024, 128}, {L"ECDSA_P256", 0, 256, 64}, {L"ECDSA_P521", 0, 521, 132}};

} // namespace

class KspKeys : public EndToEndTest {};

TEST_F(KspKeys, EnumeratesWhatTheTokenHolds)
{
    std::vector<std::wstring> names;
    for (const std::string label : {"rsa1024", "rsa2048", "rsa3072", "rsa4096", "p256", "p384", "p521"}) {
        const std::string name = keyName(label);
        names.emplace_back(name.begin(), name.end());
    }
    EXPECT_THAT(KeyStorage().names(), UnorderedElementsAreArray(names));
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
