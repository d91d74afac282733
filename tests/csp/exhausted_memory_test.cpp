#include "csp/csp_scenario.h"
#include "support/exhausted_memory.h"

#include <gmock/gmock.h>

namespace quelta::test {

class ExhaustedMemory : public CspScenario {
protected:
    using Destroy = BOOL(WINAPI*)(HCRYPTPROV, ULONG_PTR);

    ExhaustedMemory()
    {
        token.withKeyPair(usageBoth, algorithmRsa2048);
        token.withAesKey(encryptionAes128);
        open();
        prov = csp.context;
        key = userKey();
        hash = finishedHash();
        cachePin();
        // Nothing is written down, which would need memory too.
        token.onCall = nullptr;
    }
    void TearDown() override {}

    // `call` hands out through `out`, which `destroy` frees.
    void expectClean(const char* name, const std::function<BOOL()>& call, Destroy destroy = nullptr)
    {
        const auto attempt = [&] {
            out = untouched;
            length = static_cast<DWORD>(data.size());
            return call() == TRUE;
        };
        const auto expectFailure = [&] {
            EXPECT_THAT(GetLastError(), ::testing::AnyOf(static_cast<DWORD>(NTE_NO_MEMORY), reasonForRecord));
            EXPECT_EQ(out, handleAfterFailure);
        };
        expectCleanFailures(token, {name, attempt, [&] { return destroy && destroy(prov, out); }, expectFailure});
    }
    void expectCleanImport(BYTE type, ALG_ID algorithm, const Bytes& rest)
    {
        const Bytes blob = keyBlob(type, algorithm, rest);
        const auto import = [&] { return CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), key, 0, &out); };
        expectClean(blobTypeName(type).c_str(), import, CPDestroyKey);
    }

    static constexpr ULONG_PTR untouched = 0x1234;
    HCRYPTPROV prov = 0;
    HCRYPTKEY key = 0;
    HCRYPTHASH hash = 0;
    ULONG_PTR out = 0;
    Bytes data = Bytes(1024);
    DWORD length = 0;
    ULONG_PTR handleAfterFailure = untouched;
    DWORD reasonForRecord = static_cast<DWORD>(NTE_NO_MEMORY);
};

TEST_F(ExhaustedMemory, FailedCallsHandOutNothingAndLeaveNothingBehind)
{
    const auto acquire = [&] { return CPAcquireContext(&out, "a container with a long name", 0, data.data()); };
    expectClean("CPAcquireContext", acquire, [](HCRYPTPROV, ULONG_PTR made) -> BOOL { return CPReleaseContext(made, 0); });
    const auto getUserKey = [&] { return CPGetUserKey(prov, AT_SIGNATURE, &out); };
    expectClean("CPGetUserKey", getUserKey, CPDestroyKey);
    expectClean(
        "CPCreateHash", [&] { return CPCreateHash(prov, CALG_SHA1, 0, 0, &out); }, CPDestroyHash);
    expectClean(
        "CPDuplicateHash", [&] { return CPDuplicateHash(prov, hash, nullptr, 0, &out); }, CPDestroyHash);
    expectCleanImport(PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, 1024}), Bytes(132, 1)}));
    expectCleanImport(SIMPLEBLOB, CALG_AES_128, Bytes(132));
    expectClean("CPSignHash", [&] { return CPSignHash(prov, hash, 2, nullptr, 0, data.data(), &length); });
    expectClean("CPVerifySignature", [&] { return CPVerifySignature(prov, hash, data.data(), 256, 0, nullptr, 0); });
    expectClean("CPDecrypt", [&] { return CPDecrypt(prov, key, 0, TRUE, 0, data.data(), &(length = 256)); });
    expectClean("CPEncrypt", [&] { return CPEncrypt(prov, key, 0, TRUE, 0, data.data(), &(length = 9), 1024); });
    expectClean("CPExportKey", [&] { return CPExportKey(prov, key, 0, PUBLICKEYBLOB, 0, data.data(), &length); });
}

TEST_F(ExhaustedMemory, CallThatChangedTheTokenSucceeds)
{
    constexpr std::string_view label = "a label that needs memory of its own";
    token.onImportAesKey = [&](QueltaSymmetricKey& made) { setText(made.label, label); };
    token.onGenerate = [&](QueltaKeyPair& made) { setText(made.label, label); };
    expectCleanImport(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20));
    expectCleanImport(11, CALG_AES_128, Bytes(28));
    handleAfterFailure = 0;
    reasonForRecord = ERROR_NOT_ENOUGH_MEMORY;
    expectClean(
        "CPGenKey", [&] { return CPGenKey(prov, CALG_RSA_SIGN, 0, &out); }, CPDestroyKey);
}

TEST_F(ExhaustedMemory, InputThatIsRefusedIsNotCopied)
{
    const DWORD bytes = 1 << 20;
    const Bytes rsa = concat({littleEndian({0x31415352, bytes * 8}), Bytes(bytes + 4, 1)});
    const Bytes blob = keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, rsa);
    const LargestAllocation largest;
    EXPECT_FALSE(CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &out));
    EXPECT_LT(largest.size(), bytes);
}

} // namespace quelta::test
