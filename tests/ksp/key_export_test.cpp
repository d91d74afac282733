#include "ksp/ksp_test.h"

#include "token/key_match.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
        return joined({littleEndian({0x31415352, size * 8, 3, size, 0, 0}), {1, 0, 1}, key});
    }
    static Bytes legacyBlob(const Bytes& key)
    {
        return joined({{6, 2, 0, 0},
                       littleEndian({0xA400, 0x31415352, static_cast<std::uint32_t>(key.size()) * 8, 0x10001}),
                       Bytes(key.rbegin(), key.rend())});
    }
};

TEST_F(KspKeyExport, BlobsHoldTheKeyBytesAsTheyStand)
{
    for (const std::uint32_t algorithm : {algorithmRsa1024, algorithmRsa4096, algorithmP256}) {
        const QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithm);
        const Bytes publicKey(publicKeyOf(pair).begin(), publicKeyOf(pair).end());
        const auto key = opened(pair);
        expectExports(key, L"RSAPUBLICBLOB", cngBlob(publicKey));
        expectExports(key, L"PUBLICBLOB", cngBlob(publicKey));
        expectExports(key, L"CAPIPUBLICBLOB", legacyBlob(publicKey));
    }
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

TEST_F(KspKeyExport, OnlyAFinishedCngExportIsTold)
{
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    GuardedBuffer output(155);
    DWORD size = 0;
    EXPECT_EQ(ask(key, L"PUBLICBLOB", &size), 0);
    EXPECT_EQ(ksp.ExportKey(provider, key, 0, L"PUBLICBLOB", nullptr, output.data(), 154, &size, 0), NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(ksp.ExportKey(provider, key, 0, L"CAPIPUBLICBLOB", nullptr, output.data(), 155, &size, 0), 0);
    EXPECT_EQ(ksp.ExportKey(provider, key, 0, L"PUBLICBLOB", nullptr, output.data(), 155, &size, 0), 0);
    const LogLine slot = debug("KSPExportKey");
    expectLog({slot, slot, slot, slot, debug("KSP: Public key exported, bits=1024")});
}

TEST_F(KspKeyExport, MissingPublicKeyIsFetchedOnceFromTheTokenByIdentifier)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    const Bytes publicKey(publicKeyOf(pair).begin(), publicKeyOf(pair).end());
    setPublicKey(pair, {});
    const auto key = opened(pair);
    DWORD size = 77;
    EXPECT_EQ(ask(key, L"PUBLICBLOB", &size), NTE_BAD_KEY);
    EXPECT_EQ(size, 77u);
    expectLog({debug("KSPExportKey"), error("KSP: No public key data available for export")});
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
