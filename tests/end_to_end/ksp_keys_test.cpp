#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

struct MadeKey {
    const wchar_t* algorithm;
    DWORD askedBits;
    DWORD bits;
    std::size_t signatureSize;
};

const MadeKey madeKeys[] = {
    {L"RSA", 0, 2048, 256}, {L"RSA", 1024, 1024, 128}, {L"ECDSA_P256", 0, 256, 64}, {L"ECDSA_P521", 0, 521, 132}};

} // namespace

class KspKeys : public TokenTest {};

TEST_F(KspKeys, MadeKeysSignAndAreGoneWhenDeleted)
{
    const Bytes hash(32, 9);
    for (const auto& [algorithm, askedBits, bits, signatureSize] : madeKeys) {
        const auto before = storage.names();
        const StoredKey made = storage.create(algorithm);
        if (askedBits) made.set(L"Length", littleEndian({askedBits}));
        ASSERT_EQ(made.call(&Table::FinalizeKey, 0), 0);
        const Bytes name = made.property(L"Name"), signature = made.sign(hash);
        EXPECT_EQ(signature.size(), signatureSize);

        const StoredKey found = storage.open(reinterpret_cast<const wchar_t*>(name.data()));
        EXPECT_EQ(storage.names().size(), before.size() + 1);
        EXPECT_EQ(found.property(L"Algorithm Name"), wideBytes(algorithm));
        EXPECT_EQ(found.property(L"Length"), littleEndian({bits}));
        EXPECT_EQ(found.verify(hash, signature), 0);
        EXPECT_EQ(found.verify(Bytes(32), signature), NTE_BAD_SIGNATURE);
        EXPECT_EQ(found.call(&Table::DeleteKey, 0), 0);
        EXPECT_EQ(storage.names(), before);
    }
}

} // namespace quelta::test
