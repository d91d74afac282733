#include "csp/csp_test.h"

namespace quelta::test {

class ExportKey : public CspTest {
protected:
    ExportKey() : pair(token.withKeyPair(usageBoth, algorithmRsa2048)), prov(acquire()), key(userKey(prov)) {}

    HandOut exporting(DWORD type = PUBLICKEYBLOB) const
    {
        return [=, this](BYTE* data, DWORD* length) { return CPExportKey(prov, key, 77, type, 5, data, length); };
    }

    QueltaKeyPair& pair;
    HCRYPTPROV prov;
    HCRYPTKEY key;
};

TEST_F(ExportKey, OnlyAPublicKeyComesAndAsABlob)
{
    const Bytes head = concat({littleEndian({0x31415352}), littleEndian({2048}), littleEndian({65537})});
    BufferRule rule = enumerated;
    rule.written = succeededWith(ERROR_SUCCESS);
    expectHandsOut(rule, keyBlob(PUBLICKEYBLOB, CALG_RSA_SIGN, concat({head, reversed(publicKeyOf(pair))})), exporting());
    for (const DWORD type : {PRIVATEKEYBLOB, 0, SIMPLEBLOB, PLAINTEXTKEYBLOB, 0x106}) {
        const auto refused = type == PRIVATEKEYBLOB ? failedWith(ERROR_ACCESS_DENIED) : failedWith(NTE_BAD_TYPE);
        EXPECT_EQ(query(7, exporting(type)), (Handed{refused, 7, {}}));
    }
    expectFails(ERROR_INVALID_PARAMETER, [&] { return exporting()(nullptr, nullptr); });
}

TEST_F(ExportKey, OnlyKeysOf2048BitsThatTheTokenStillHasGoOut)
{
    const Handed refused = {failedWith(NTE_BAD_KEY), 7, {}};
    for (const std::int32_t hostile : {-1, 1025, 0x7FFFFFFF}) {
        pair.publicKeyLength = hostile;
        EXPECT_EQ(query(7, exporting()), (Handed{succeededWith(ERROR_MORE_DATA), 20, {}})) << "an empty key: " << hostile;
    }
    for (const std::uint32_t algorithm : {algorithmRsa1024, algorithmRsa3072, algorithmRsa4096, algorithmP256}) {
        pair.algorithm = algorithm;
        EXPECT_EQ(query(7, exporting()), refused) << algorithm;
    }
    pair.algorithm = algorithmRsa2048;
    pair.keyId[15] ^= 1;
    EXPECT_EQ(query(7, exporting()), refused);
    token.keyPairs.clear();
    EXPECT_EQ(query(7, exporting()), refused);
}

} // namespace quelta::test
