#include "support/exhausted_memory.h"

#include "ksp/ksp_test.h"
#include "support/machine_registry.h"

namespace quelta::test {

namespace {

constexpr NCRYPT_KEY_HANDLE untouchedHandle = 0x1234;

} // namespace

class KspExhaustedMemory : public KspTest {
protected:
    KspExhaustedMemory()
    {
        constexpr std::string_view label = "a label that needs memory of its own";
        setText(pair.label, label);
        token.withCertificateOf(pair, counting(300));
        token.withAesKey(encryptionAes128);
        token.onImportAesKey = [=](QueltaSymmetricKey& made) { setText(made.label, label); };
        token.onGenerate = [=](QueltaKeyPair& made) { setText(made.label, label); };
        cachePin();
    }

    void expectClean(
        const char* name, const std::function<SECURITY_STATUS()>& slot, const std::function<void()>& undo = [] {})
    {
        SECURITY_STATUS status = 0;
        const auto call = [&] {
            out = untouchedHandle;
            status = slot();
            return status == 0;
        };
        const auto expectFailure = [&] {
            EXPECT_EQ(status, NTE_NO_MEMORY);
            EXPECT_EQ(out, untouchedHandle);
        };
        expectCleanFailures(token, {name, call, undo, expectFailure});
    }
    void expectCleanImport(LPCWSTR type, Bytes blob)
    {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, ::testing::PrintToString(std::wstring(type)));
        expectClean(
            "KSPImportKey",
            [&] { return ksp.ImportKey(provider, key, type, nullptr, &out, blob.data(), static_cast<DWORD>(blob.size()), 0); },
            freeKey);
    }

    QueltaKeyPair& pair = token.withKeyPair(usageBoth, algorithmRsa1024);
    NCRYPT_KEY_HANDLE key = opened(pair);
    NCRYPT_KEY_HANDLE out = 0;
    Bytes data = Bytes(1024);
    DWORD size = 0;
    const std::function<void()> freeKey = [this] { ksp.FreeKey(provider, out); };
};

TEST_F(KspExhaustedMemory, FailedCallsHandOutNothingAndLeaveNothingBehind)
{
    expectClean(
        "KSPOpenProvider", [&] { return ksp.OpenProvider(&out, L"", 0); }, [&] { ksp.FreeProvider(out); });
    const std::wstring name = nameOf(pair);
    expectClean(
        "KSPOpenKey", [&] { return ksp.OpenKey(provider, &out, name.c_str(), 0, 0); }, freeKey);
    expectClean(
        "KSPCreatePersistedKey", [&] { return ksp.CreatePersistedKey(provider, &out, L"RSA", L"a long name", 0, 0); }, freeKey);
    expectCleanImport(L"RSAPUBLICBLOB", concat({littleEndian({0x31415352, 1024, 3, 128, 0, 0}), Bytes(131, 1)}));
    expectCleanImport(L"CAPIPUBLICBLOB", concat({Bytes(8), littleEndian({0x31415352, 1024, 3}), Bytes(128, 1)}));
    token.plain.bytes = counting(16);
    expectCleanImport(L"OpaqueTransport", Bytes(128));
    const auto room = static_cast<DWORD>(data.size());
    BYTE* const bytes = data.data();
    expectClean("KSPExportKey",
                [&] { return ksp.ExportKey(provider, key, 0, L"RSAPUBLICBLOB", nullptr, bytes, room, &size, 0); });
    expectClean("KSPGetKeyProperty",
                [&] { return ksp.GetKeyProperty(provider, key, L"SmartCardKeyCertificate", bytes, room, &size, 0); });
    expectClean(
        "KSPSetKeyProperty", [&] { return ksp.SetKeyProperty(provider, key, L"IV", bytes, 16, 0); },
        [] { tokenState().sharedIv.clear(); });
    expectClean("KSPEncrypt", [&] { return ksp.Encrypt(provider, key, bytes, 9, nullptr, bytes, room, &size, 0); });
    expectClean("KSPDecrypt", [&] { return ksp.Decrypt(provider, key, bytes, 128, nullptr, bytes, room, &size, 0); });
    expectClean("KSPSignHash", [&] { return ksp.SignHash(provider, key, nullptr, bytes, 32, bytes, room, &size, 0); });
    expectClean("KSPVerifySignature", [&] { return ksp.VerifySignature(provider, key, nullptr, bytes, 32, bytes, 128, 0); });
}

TEST_F(KspExhaustedMemory, CallThatChangedTheTokenSucceeds)
{
    expectCleanImport(L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 16}), Bytes(16)}));
    expectCleanImport(L"OpaqueKeyBlob", Bytes(24));
    NCRYPT_KEY_HANDLE unfinished = 0;
    const auto renew = [&] {
        if (unfinished) ksp.FreeKey(provider, unfinished);
        ASSERT_EQ(ksp.CreatePersistedKey(provider, &unfinished, L"RSA", nullptr, 0, 0), 0);
    };
    renew();
    expectClean(
        "KSPFinalizeKey", [&] { return ksp.FinalizeKey(provider, unfinished, 0); }, renew);
    ksp.FreeKey(provider, unfinished);
    expectClean("KSPDeleteKey", [&] { return ksp.DeleteKey(provider, key, 0); });
    expectClean("SmartCardKeyCertificate",
                [&] { return ksp.SetKeyProperty(provider, key, L"SmartCardKeyCertificate", data.data(), 300, 0); });
}

// What an enumeration gives out is released but for its texts, so nothing is counted here.
TEST_F(KspExhaustedMemory, EnumerationSkipsNoKey)
{
    token.withKeyPair(usageSigning, algorithmP256);
    for (const DWORD level : {0, 3}) {
        setLogLevel(level);
        bool refused = true;
        for (int allowed = 0; refused; ++allowed) {
            void* state = nullptr;
            NCryptKeyName* name = nullptr;
            std::vector<std::wstring> names;
            const auto next = [&] { return ksp.EnumKeys(provider, nullptr, &name, &state, 0); };
            ::testing::internal::CaptureStdout();
            SECURITY_STATUS status = 0;
            {
                const RefusedAllocation refusal(allowed);
                status = next();
                refused = refusal.happened();
            }
            ::testing::internal::GetCapturedStdout();
            for (; status != NTE_NO_MORE_ITEMS; status = next()) {
                if (status == 0) names.emplace_back(name->pszName);
            }
            EXPECT_THAT(names, ::testing::ElementsAre(nameOf(token.keyPairs[0]), nameOf(token.keyPairs[1]))) << allowed;
        }
    }
}

TEST_F(KspExhaustedMemory, InputThatIsRefusedIsNotCopied)
{
    const DWORD bytes = 1 << 20;
    Bytes text(bytes, 'C');
    Bytes legacyBlob = concat({Bytes(8), littleEndian({0x31415352, bytes * 8, 3}), Bytes(bytes, 1)});
    const LargestAllocation largest;
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"ChainingMode", text.data(), bytes, 0), NTE_NOT_SUPPORTED);
    EXPECT_EQ(ksp.ImportKey(provider, 0, L"CAPIPUBLICBLOB", nullptr, &out, legacyBlob.data(), bytes + 20, 0), NTE_BAD_DATA);
    EXPECT_LT(largest.size(), bytes);
}

} // namespace quelta::test
