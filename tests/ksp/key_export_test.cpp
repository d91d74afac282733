#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;

class KspKeyExport : public KspTest {
protected:
    SECURITY_STATUS ask(NCRYPT_KEY_HANDLE key, LPCWSTR type, DWORD* size)
    {
        return ksp.ExportKey(provider, key, 0, type, nullptr, nullptr, 0, size, 0);
    }

    void expectExports(NCRYPT_KEY_HANDLE key, LPCWSTR type, const Bytes& blob)
    {
        expectGives(blob, [&](PBYTE output, DWORD room, DWORD* result) {
            return ksp.ExportKey(provider, key, 0, type, nullptr, output, room, result, 0);
        });
    }

    static Bytes cngBlob(const Bytes& key)
    {
        const auto size = static_cast<std::uint32_t>(key.size());
        return concat({littleEndian({0x31415352, size * 8, 3, size, 0, 0}), {1, 0, 1}, key});
    }
};

TEST_F(KspKeyExport, BlobsHoldTheKeyBytesAsTheyStand)
{
    for (const std::uint32_t algorithm : {algorithmRsa1024, algorithmRsa4096, algorithmP256}) {
        const QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithm);
        const Bytes stored = publicKeyBytes(pair);
        const auto key = opened(pair);
        expectExports(key, L"RSAPUBLICBLOB", cngBlob(stored));
        expectExports(key, L"PUBLICBLOB", cngBlob(stored));
        expectExports(key, L"CAPIPUBLICBLOB",
                      concat({{6, 2, 0, 0},
                              littleEndian({0xA400, 0x31415352, static_cast<std::uint32_t>(stored.size()) * 8, 0x10001}),
                              Bytes(stored.rbegin(), stored.rend())}));
    }
    EXPECT_THAT(token.takeCalls(), testing::IsEmpty());
}

TEST_F(KspKeyExport, MissingPublicKeyIsFetchedOnceFromTheTokenByIdentifier)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    const Bytes publicKey = publicKeyBytes(pair);
    setPublicKey(pair, {});
    const auto key = opened(pair);
    DWORD size = 77;
    EXPECT_EQ(ask(key, L"PUBLICBLOB", &size), NTE_BAD_KEY);
    EXPECT_EQ(size, 77u);
    setPublicKey(pair, publicKey);
    token.takeCalls();
    expectExports(key, L"PUBLICBLOB", cngBlob(publicKey));
    EXPECT_THAT(token.takeCalls(), ElementsAre("getKeyPairList(TOKEN-1)"));
}

TEST_F(KspKeyExport, PrivateKeysAreRefusedSilentlyAndOtherTypesAloud)
{
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    DWORD size = 77;
    for (const LPCWSTR type : {L"PRIVATEBLOB", L"CAPIPRIVATEBLOB", L"publicblob"}) {
        EXPECT_EQ(ask(key, type, &size), NTE_NOT_SUPPORTED);
    }
    const LogLine slot = debug("KSPExportKey");
    expectLog({slot, slot, slot, error("KSP: Unsupported blob type for export")});
    EXPECT_EQ(ask(0, L"PUBLICBLOB", &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ask(key, nullptr, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ask(key, L"PUBLICBLOB", nullptr), NTE_INVALID_PARAMETER);
    EXPECT_EQ(size, 77u);
}

} // namespace quelta::test
