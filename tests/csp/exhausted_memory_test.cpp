#include "csp/csp_test.h"
#include "support/exhausted_memory.h"

#include "support/machine_registry.h"

namespace quelta::test {

class ExhaustedMemory : public CspTest {
protected:
    ExhaustedMemory()
    {
        token.withKeyPair(usageBoth, algorithmRsa2048);
        token.withAesKey(encryptionAes128);
        prov = acquire();
        key = userKey(prov);
        hash = finishedHash(prov);
        cachePin();
    }

    // `call` hands out through `out`; `freeIt` frees that.
    void expectClean(
        const char* name, const Attempt& call, const Attempt& freeIt = [] { return TRUE; })
    {
        const auto attempt = [&] {
            out = untouchedHandle;
            length = static_cast<DWORD>(data.size());
            return call() == TRUE;
        };
        const auto expectFailure = [&] {
            EXPECT_THAT(GetLastError(), ::testing::AnyOf(static_cast<DWORD>(NTE_NO_MEMORY), reasonForRecord));
            EXPECT_EQ(out, handleAfterFailure);
        };
        expectCleanFailures(token, {name, attempt, freeIt, expectFailure});
    }
    void expectCleanImport(const char* name, const Bytes& blob)
    {
        expectClean(
            name, [&] { return CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), key, 0, &out); }, destroyKey);
    }

    HCRYPTPROV prov = 0;
    HCRYPTKEY key = 0;
    HCRYPTHASH hash = 0;
    ULONG_PTR out = 0;
    Bytes data = Bytes(1024);
    DWORD length = 0;
    ULONG_PTR handleAfterFailure = untouchedHandle;
    DWORD reasonForRecord = static_cast<DWORD>(NTE_NO_MEMORY);
    const Attempt destroyKey = [this] { return CPDestroyKey(prov, out); };
    const Attempt destroyHash = [this] { return CPDestroyHash(prov, out); };
};

TEST_F(ExhaustedMemory, FailedCallsHandOutNothingAndLeaveNothingBehind)
{
    expectClean(
        "CPAcquireContext", [&] { return CPAcquireContext(&out, "a container with a long name", 0, data.data()); },
        [&] { return CPReleaseContext(out, 0); });
    expectClean(
        "CPGetUserKey", [&] { return CPGetUserKey(prov, AT_SIGNATURE, &out); }, destroyKey);
    expectClean(
        "CPCreateHash", [&] { return CPCreateHash(prov, CALG_SHA1, 0, 0, &out); }, destroyHash);
    expectClean(
        "CPDuplicateHash", [&] { return CPDuplicateHash(prov, hash, nullptr, 0, &out); }, destroyHash);
    const Bytes rsa = concat({littleEndian({0x31415352}), littleEndian({1024}), Bytes(132, 1)});
    expectCleanImport("public key", keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, rsa));
    expectCleanImport("encrypted key", keyBlob(SIMPLEBLOB, CALG_AES_128, Bytes(132)));
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
    expectCleanImport("plain key", keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20)));
    expectCleanImport("wrapped key", keyBlob(11, CALG_AES_128, Bytes(28)));
    handleAfterFailure = 0;
    reasonForRecord = ERROR_NOT_ENOUGH_MEMORY;
    expectClean(
        "CPGenKey", [&] { return CPGenKey(prov, CALG_RSA_SIGN, 0, &out); }, destroyKey);
}

TEST_F(ExhaustedMemory, InputThatIsRefusedIsNotCopied)
{
    const DWORD bytes = 1 << 20;
    const Bytes rsa = concat({littleEndian({0x31415352, bytes * 8}), Bytes(bytes + 4, 1)});
    const Bytes blob = keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, rsa);
    const LargestAllocation largest;
    expectFails(NTE_BAD_DATA, [&] { return CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &out); });
    EXPECT_LT(largest.size(), bytes);
}

} // namespace quelta::test
