#include "ksp/ksp_test.h"

#include <algorithm>
#include <array>

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr std::uint32_t rsaMagic = 0x31415352;
constexpr std::uint32_t keyDataMagic = 0x4D42444B;
constexpr std::uint32_t most = 0xFFFFFFFF;

Bytes publicBlob(std::uint32_t bits, std::size_t modulusSize)
{
    return joined({littleEndian({rsaMagic, bits, 3, static_cast<std::uint32_t>(modulusSize), 0, 0}),
                   {1, 0, 1},
                   counting(modulusSize, 0xC1)});
}

// With a header that says nothing of the kind.
Bytes legacyBlob(std::uint32_t bits, std::size_t modulusSize, std::uint32_t exponent = 0x10001)
{
    return joined({Bytes(8, 0xFF), littleEndian({rsaMagic, bits, exponent}), counting(modulusSize, 0xC1)});
}

Bytes keyData(std::size_t size)
{
    return joined({littleEndian({keyDataMagic, 9, static_cast<std::uint32_t>(size)}), counting(size)});
}

// What crypt32 reads in a SubjectPublicKeyInfo: the RSAPUBKEY and the modulus, least significant byte first.
Bytes readByCrypt32(Bytes der)
{
    std::array<std::uint64_t, 256> info{};
    Bytes blob(2048);
    DWORD size = sizeof info;
    EXPECT_TRUE(CryptDecodeObject(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO, der.data(), static_cast<DWORD>(der.size()), 0,
                                  info.data(), &size));
    const auto& key = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(info.data())->PublicKey;
    size = static_cast<DWORD>(blob.size());
    EXPECT_TRUE(CryptDecodeObject(X509_ASN_ENCODING, RSA_CSP_PUBLICKEYBLOB, key.pbData, key.cbData, 0, blob.data(), &size));
    return {blob.begin() + 8, blob.begin() + size};
}

} // namespace

class KspKeyImport : public KspTest {
protected:
    // Refused with this status and these lines, and without a handle.
    void expectRefused(LPCWSTR type, const Bytes& blob, SECURITY_STATUS status, std::vector<LogLine> lines = {},
                       std::source_location where = std::source_location::current())
    {
        const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "the import");
        NCRYPT_KEY_HANDLE key = 7;
        log.forget();
        EXPECT_EQ(import(type, blob, key), status) << blob.size() << " bytes";
        EXPECT_EQ(key, 7u);
        lines.insert(lines.begin(), debug("KSPImportKey"));
        expectLog(lines, where);
    }
};

TEST_F(KspKeyImport, PublicKeyIsKeptAsItStands)
{
    for (const DWORD bits : {1024u, 2048u, 3072u, 4096u}) {
        for (const LPCWSTR type : {L"RSAPUBLICBLOB", L"PUBLICBLOB"}) {
            NCRYPT_KEY_HANDLE handle = 0;
            forget();
            ASSERT_EQ(import(type, publicBlob(bits, bits / 8), handle), 0);
            expectLog({debug("KSPImportKey"), debug("KSP: RSA public key imported, bits=" + std::to_string(bits))});
            const KspKey& key = *kspKeyOf(owned(handle));
            EXPECT_TRUE(std::ranges::equal(key.publicKey.view(), counting(bits / 8, 0xC1)));
            EXPECT_EQ(key.algorithm, bits / 1024);
            EXPECT_EQ(dwordProperty(handle, L"Length"), bits);
            EXPECT_EQ(dwordProperty(handle, L"Key Usage"), 0u);
            EXPECT_EQ(textProperty(handle, L"Name"), std::wstring(32, L'0'));
        }
    }
    // The announced size and the modulus need not agree.
    EXPECT_EQ(kspKeyOf(imported(L"PUBLICBLOB", publicBlob(2048, 3)))->publicKey.size(), 3u);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

TEST_F(KspKeyImport, PublicBlobsThatDoNotHoldTogetherAreRefused)
{
    const Bytes whole = publicBlob(2048, 256);
    for (const std::size_t size : {1, 23, 24, 27, 282}) {
        expectRefused(L"RSAPUBLICBLOB", {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}, NTE_BAD_DATA);
    }
    for (const auto& [exponent, modulus] : {std::pair(most, 1u), {1u, most}, {most, most}, {0x80000000u, 0x80000000u}}) {
        expectRefused(L"PUBLICBLOB", joined({littleEndian({rsaMagic, 2048, exponent, modulus, 0, 0}), Bytes(64)}), NTE_BAD_DATA);
    }
    expectRefused(L"RSAPUBLICBLOB", joined({littleEndian({0x32415352}), publicBlob(2048, 256)}), NTE_BAD_DATA);
    expectRefused(L"RSAPUBLICBLOB", publicBlob(1536, 192), NTE_NOT_SUPPORTED, {error("KSP: Unsupported RSA key size: 1536")});
    expectRefused(L"RSAPUBLICBLOB", publicBlob(1536, 513), NTE_BAD_DATA);
}

TEST_F(KspKeyImport, LegacyPublicKeyBecomesTheDerFormThatWindowsReads)
{
    for (const DWORD bits : {1024u, 2048u, 3072u}) {
        const Bytes blob = legacyBlob(bits, bits / 8, 0x10003);
        NCRYPT_KEY_HANDLE handle = 0;
        forget();
        ASSERT_EQ(import(L"CAPIPUBLICBLOB", joined({blob, {1, 2}}), handle), 0);
        expectLog({debug("KSPImportKey"), debug("KSP: Public exponent : 010003"),
                   debug("KSP: Legacy RSA public key imported successfully")});
        const ByteView der = kspKeyOf(owned(handle))->publicKey.view();
        EXPECT_EQ(readByCrypt32({der.begin(), der.end()}), Bytes(blob.begin() + 8, blob.end()));
        EXPECT_EQ(kspKeyOf(handle)->algorithm, bits / 1024);
        EXPECT_EQ(dwordProperty(handle, L"Length"), bits);
    }
}

TEST_F(KspKeyImport, LegacyBlobsThatDoNotHoldTogetherAreRefused)
{
    const Bytes whole = legacyBlob(1024, 128);
    for (const std::size_t size : {7, 8, 12, 16, 19, 20, 147}) {
        expectRefused(L"CAPIPUBLICBLOB", {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}, NTE_BAD_DATA);
    }
    expectRefused(L"CAPIPUBLICBLOB", legacyBlob(most, 128), NTE_BAD_DATA);
    expectRefused(L"CAPIPUBLICBLOB", joined({Bytes(8), littleEndian({rsaMagic + 1, 1024, 3}), Bytes(128)}), NTE_BAD_DATA);
    const LogLine exponent = debug("KSP: Public exponent : 010001");
    expectRefused(L"CAPIPUBLICBLOB", legacyBlob(1536, 192), NTE_NOT_SUPPORTED,
                  {exponent, error("KSP: Unsupported RSA key size")});
    expectRefused(L"CAPIPUBLICBLOB", legacyBlob(7, 0), NTE_NOT_SUPPORTED, {exponent, error("KSP: Unsupported RSA key size")});
    // The DER form of these is longer than what an import keeps.
    expectRefused(L"CAPIPUBLICBLOB", legacyBlob(4096, 512), NTE_BAD_DATA, {exponent});
    expectRefused(L"CAPIPUBLICBLOB", legacyBlob(8192, 1024), NTE_BAD_DATA, {exponent});
}

TEST_F(KspKeyImport, ClearKeyGoesToTheTokenByTheCodeOfItsLength)
{
    knowPin();
    const struct {
        std::size_t size;
        const char* code;
    } rows[] = {{16, "8"}, {24, "11"}, {32, "10"}};
    for (const auto& row : rows) {
        NCRYPT_KEY_HANDLE handle = 0;
        forget();
        ASSERT_EQ(import(L"KeyDataBlob", joined({keyData(row.size), {1}}), handle), 0);
        EXPECT_THAT(token.takeCalls(),
                    ElementsAre("importAesKey(TOKEN-1, 1234, " + hexText(counting(row.size)) + ", " + row.code + ")"));
        expectLog({debug("KSPImportKey"), debug("KSP: BCRYPT_KEY_DATA_BLOB imported successfully (AES)")});
        EXPECT_FALSE(kspKeyOf(owned(handle))->isSymmetric()) << "the clear key is not kept";
        EXPECT_EQ(textProperty(handle, L"Name"), L"88888888888888888888888888888888");
        EXPECT_EQ(dwordProperty(handle, L"Length"), 0u);
    }
}

TEST_F(KspKeyImport, StoredKeyIsWhatTheTokenAnswered)
{
    token.onImportAesKey = [](QueltaSymmetricKey& key) {
        key.encryptionType = 77;
        key.usage = usageBoth;
        key.flag = 1;
        key.keyReferenceLength = 129;
        std::ranges::fill(key.label, 's');
    };
    const KspKey& key = *kspKeyOf(imported(L"KeyDataBlob", keyData(16)));
    EXPECT_EQ(key.algorithm, 77u);
    EXPECT_EQ(key.keyUsage, 3u);
    EXPECT_EQ(key.keyPairFlag, 1);
    EXPECT_TRUE(key.objectId.empty()) << "of a length that its field does not have";
    EXPECT_EQ(key.label, std::string(128, 's'));
}

TEST_F(KspKeyImport, ClearKeysThatDoNotFitAreRefusedBeforeTheToken)
{
    for (const std::size_t size : {0, 15, 17, 33, 129}) {
        expectRefused(L"KeyDataBlob", keyData(size), NTE_NOT_SUPPORTED,
                      {error("KSP: Unsupported key size for BCRYPT_KEY_DATA_BLOB: " + std::to_string(size))});
    }
    for (const std::uint32_t announced : {17u, most, most - 11}) {
        expectRefused(L"KeyDataBlob", joined({littleEndian({keyDataMagic, 1, announced}), Bytes(16)}), NTE_BAD_DATA);
    }
    expectRefused(L"KeyDataBlob", joined({littleEndian({keyDataMagic + 1, 1, 16}), Bytes(16)}), NTE_BAD_DATA);
    expectRefused(L"KeyDataBlob", littleEndian({keyDataMagic, 1}), NTE_BAD_DATA);
    EXPECT_THAT(token.takeCalls(), IsEmpty());

    token.willAnswer(Call::importAesKey, 3);
    expectRefused(L"KeyDataBlob", keyData(16), NTE_BAD_TYPE, {error("KSP: BCRYPT_KEY_DATA_BLOB import failed")});
    EXPECT_THAT(token.takeCalls(), ElementsAre("importAesKey(TOKEN-1, , " + hexText(counting(16)) + ", 8)"))
        << "without asking for a PIN";
}

TEST_F(KspKeyImport, MissingPiecesAreRefusedWhateverTheType)
{
    BYTE byte = 1;
    NCRYPT_KEY_HANDLE key = 7;
    const auto call = [&](LPCWSTR type, NCRYPT_KEY_HANDLE* handle, PBYTE data, DWORD size) {
        return ksp.ImportKey(provider, 0, type, nullptr, handle, data, size, 0);
    };
    EXPECT_EQ(call(nullptr, &key, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(L"?", nullptr, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(L"?", &key, nullptr, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(L"?", &key, &byte, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(L"PUBLICBLOB", &key, &byte, 0x80000000), NTE_INVALID_PARAMETER);
    EXPECT_EQ(key, 7u);
}

} // namespace quelta::test
