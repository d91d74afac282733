#include "csp/csp_test.h"

#include "support/machine_registry.h"

#include <cstdlib>
#include <new>

namespace {

// For this thread: what it has allocated less what it has freed, and how many allocations succeed before one is refused.
constexpr int never = -1;
thread_local long long live = 0;
thread_local int allocationsLeft = never;
thread_local bool refused = false;

void release(void* memory) noexcept
{
    if (memory) --live;
    std::free(memory);
}

} // namespace

// The executable's own: the array forms and the sized ones come here, too.
void* operator new(std::size_t size)
{
    if (allocationsLeft == 0) {
        allocationsLeft = never;
        refused = true;
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) --allocationsLeft;
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    ++live;
    return memory;
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}

namespace quelta::test {

// Every allocation of a call is refused in turn. Nothing is logged meanwhile: a line that finds no memory is only lost.
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
        setLogLevel(0);
    }

    // `call` hands out through `out`; `freeIt` frees that.
    void expectCleanFailures(
        const char* name, const Attempt& call, const Attempt& freeIt = [] { return TRUE; })
    {
        SCOPED_TRACE(name);
        ASSERT_TRUE(attempt(call)) << GetLastError();
        freeIt();
        const auto before = live;
        for (int allowed = 0;; ++allowed) {
            refused = false;
            allocationsLeft = allowed;
            const BOOL answer = attempt(call);
            allocationsLeft = never;
            const DWORD reason = GetLastError();
            if (answer) freeIt();
            token.takeCalls();
            ASSERT_EQ(live, before) << "leaked when allocation " << allowed << " was refused";
            ASSERT_EQ(answer, refused ? FALSE : TRUE) << "allocation " << allowed;
            if (!refused) break;
            EXPECT_THAT(reason, ::testing::AnyOf(static_cast<DWORD>(NTE_NO_MEMORY), reasonForRecord)) << allowed;
            EXPECT_EQ(out, handleAfterFailure);
        }
    }
    BOOL attempt(const Attempt& call)
    {
        out = untouchedHandle;
        length = static_cast<DWORD>(data.size());
        const BOOL answer = call();
        token.takeCalls();
        return answer;
    }
    void expectCleanImport(const char* name, const Bytes& blob)
    {
        expectCleanFailures(
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
    expectCleanFailures(
        "CPAcquireContext", [&] { return CPAcquireContext(&out, "a container with a long name", 0, data.data()); },
        [&] { return CPReleaseContext(out, 0); });
    expectCleanFailures(
        "CPGetUserKey", [&] { return CPGetUserKey(prov, AT_SIGNATURE, &out); }, destroyKey);
    expectCleanFailures(
        "CPCreateHash", [&] { return CPCreateHash(prov, CALG_SHA1, 0, 0, &out); }, destroyHash);
    expectCleanFailures(
        "CPDuplicateHash", [&] { return CPDuplicateHash(prov, hash, nullptr, 0, &out); }, destroyHash);
    const Bytes rsa = concat({littleEndian({0x31415352}), littleEndian({1024}), Bytes(132, 1)});
    expectCleanImport("public key", keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, rsa));
    expectCleanImport("plain key", keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20)));
    expectCleanImport("wrapped key", keyBlob(11, CALG_AES_128, Bytes(28)));
    expectCleanImport("encrypted key", keyBlob(SIMPLEBLOB, CALG_AES_128, Bytes(132)));
    expectCleanFailures("CPSignHash", [&] { return CPSignHash(prov, hash, 2, nullptr, 0, data.data(), &length); });
    expectCleanFailures("CPVerifySignature", [&] { return CPVerifySignature(prov, hash, data.data(), 256, 0, nullptr, 0); });
    expectCleanFailures("CPDecrypt", [&] { return CPDecrypt(prov, key, 0, TRUE, 0, data.data(), &(length = 256)); });
    expectCleanFailures("CPEncrypt", [&] { return CPEncrypt(prov, key, 0, TRUE, 0, data.data(), &(length = 9), 1024); });
    expectCleanFailures("CPExportKey", [&] { return CPExportKey(prov, key, 0, PUBLICKEYBLOB, 0, data.data(), &length); });

    handleAfterFailure = 0;
    reasonForRecord = ERROR_NOT_ENOUGH_MEMORY;
    token.onGenerate = [](QueltaKeyPair& made) { setText(made.label, "a label that needs memory of its own"); };
    expectCleanFailures(
        "CPGenKey", [&] { return CPGenKey(prov, CALG_RSA_SIGN, 0, &out); }, destroyKey);
}

} // namespace quelta::test
