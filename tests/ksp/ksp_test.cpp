// What no transcript sees.
#include "support/exhausted_memory.h"

#include "ksp/key.h"
#include "ksp/ksp_calls.h"
#include "support/machine_registry.h"

#include <atomic>
#include <stdexcept>

namespace quelta::test {

// An open provider with a key of the token's, a PIN, and nothing of all that in the log or among the token's calls.
class KspTest : public ModuleTest {
protected:
    KspTest()
    {
        constexpr std::string_view label = "a label that needs memory of its own";
        setText(token.withKeyPair(usageBoth, algorithmRsa1024).label, label);
        token.withCertificateOf(token.keyPairs[0], counting(300));
        token.withAesKey(encryptionAes128);
        token.onImportAesKey = [=](QueltaSymmetricKey& made) { setText(made.label, label); };
        token.onGenerate = [=](QueltaKeyPair& made) { setText(made.label, label); };
        token.plain.bytes = counting(16);
        requireStatus(kspSlot("KSPOpenProvider")({addressOf(&provider)}), "KSPOpenProvider");
        requireStatus(kspSlot("KSPOpenKey")({provider, addressOf(&key), name}), "KSPOpenKey");
        cachePin();
        forget();
    }
    ~KspTest() override
    {
        kspSlot("KSPFreeKey")({provider, key});
        kspSlot("KSPFreeProvider")({provider});
    }

    void expectClean(
        const char* slot, const KspSlot::Values& values, const std::function<void()>& undo = [] {})
    {
        constexpr ULONG_PTR untouched = 0x1234;
        SECURITY_STATUS status = 0;
        const auto call = [&, function = kspSlot(slot).function] {
            out = untouched;
            return (status = std::apply(function, values)) == 0;
        };
        const auto expectFailure = [&] { EXPECT_TRUE(status == NTE_NO_MEMORY && out == untouched) << status; };
        expectCleanFailures(token, {slot, call, undo, expectFailure});
    }
    void expectCleanImport(LPCWSTR type, const Bytes& blob)
    {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, quoted(type));
        expectClean("KSPImportKey", {provider, key, addressOf(type), 0, place, addressOf(blob.data()), blob.size()}, freeKey);
    }

    ULONG_PTR provider = 0;
    ULONG_PTR key = 0;
    const ULONG_PTR name = addressOf(L"01010101010101010101010101010101");
    // What calls are given and what they give.
    Bytes data = Bytes(1024);
    const ULONG_PTR bytes = addressOf(data.data());
    DWORD size = 0;
    const ULONG_PTR length = addressOf(&size);
    ULONG_PTR out = 0;
    const ULONG_PTR place = addressOf(&out);
    const std::function<void()> freeKey = [this] { kspSlot("KSPFreeKey")({provider, out}); };
};

using KspExhaustedMemory = KspTest;

TEST_F(KspExhaustedMemory, FailedCallsHandOutNothingAndLeaveNothingBehind)
{
    expectClean("KSPOpenProvider", {place}, [&] { kspSlot("KSPFreeProvider")({out}); });
    expectClean("KSPOpenKey", {provider, place, name}, freeKey);
    expectClean("KSPCreatePersistedKey", {provider, place, addressOf(L"RSA"), addressOf(L"a long name")}, freeKey);
    expectClean("KSPGetKeyProperty", {provider, key, addressOf(L"SmartCardKeyCertificate"), bytes, 1024, length});
    expectClean("KSPSetKeyProperty", {provider, key, addressOf(L"IV"), bytes, 16}, [] { tokenState().sharedIv.clear(); });
    expectClean("KSPExportKey", {provider, key, 0, addressOf(L"PUBLICBLOB"), 0, bytes, 1024, length});
    for (const char* slot : {"KSPEncrypt", "KSPDecrypt"}) expectClean(slot, {provider, key, bytes, 99, 0, bytes, 1024, length});
    expectClean("KSPSignHash", {provider, key, 0, bytes, 32, bytes, 1024, length});
    expectClean("KSPVerifySignature", {provider, key, 0, bytes, 32, bytes, 128});
    expectCleanImport(L"RSAPUBLICBLOB", concat({littleEndian({0x31415352, 1024, 3, 128, 0, 0}), Bytes(131, 1)}));
    expectCleanImport(L"CAPIPUBLICBLOB", concat({Bytes(8), littleEndian({0x31415352, 1024, 3}), Bytes(128, 1)}));
    expectCleanImport(L"OpaqueTransport", Bytes(128));
}

TEST_F(KspExhaustedMemory, CallThatChangedTheTokenSucceeds)
{
    expectCleanImport(L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 16}), Bytes(16)}));
    expectCleanImport(L"OpaqueKeyBlob", Bytes(24));
    expectClean("KSPSetKeyProperty", {provider, key, addressOf(L"SmartCardKeyCertificate"), bytes, 300});
    expectClean("KSPDeleteKey", {provider, key});
    kspKeyOf(key)->finalized = false;
    expectClean("KSPFinalizeKey", {provider, key}, [&] { kspKeyOf(key)->finalized = false; });
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
            NCryptKeyName* found = nullptr;
            std::wstring names;
            const auto next = [&, slot = kspSlot("KSPEnumKeys").function] {
                return std::apply(slot, KspSlot::Values{provider, 0, addressOf(&found), addressOf(&state)});
            };
            ::testing::internal::CaptureStdout();
            auto refusal = std::make_unique<RefusedAllocation>(allowed);
            SECURITY_STATUS status = next();
            refused = refusal->happened();
            refusal.reset();
            ::testing::internal::GetCapturedStdout();
            for (; status != NTE_NO_MORE_ITEMS; status = next()) names += status == 0 ? found->pszName : L"";
            EXPECT_EQ(names, L"0101010101010101010101010101010102020202020202020202020202020202") << allowed;
        }
    }
}

TEST_F(KspExhaustedMemory, InputThatIsRefusedIsNotCopied)
{
    constexpr DWORD most = 1 << 20;
    const Bytes blob = concat({Bytes(8), littleEndian({0x31415352, most * 8, 3}), Bytes(most, 'C')});
    const auto& set = kspSlot("KSPSetKeyProperty");
    const auto& import = kspSlot("KSPImportKey");
    const LargestAllocation largest;
    EXPECT_EQ(set({provider, key, addressOf(L"ChainingMode"), addressOf(&blob.back() - most), most}), NTE_NOT_SUPPORTED);
    EXPECT_EQ(import({provider, 0, addressOf(L"CAPIPUBLICBLOB"), 0, place, addressOf(blob.data()), blob.size()}), NTE_BAD_DATA);
    EXPECT_LT(largest.size(), most);
}

using KspSilentCall = KspTest;

// As the device monitor clears it: whatever the moment, a silent call has the PIN or is refused.
TEST_F(KspSilentCall, NeverComesToAPromptWhileThePinIsCleared)
{
    setLogLevel(0);
    std::atomic<int> prompts = 0;
    token.during(Call::getTokenInfo, [&] {
        ++prompts;
        throw std::runtime_error("no prompt here");
    });
    std::atomic<bool> over = false;
    const auto clearing = callerThread([&] {
        while (!over) {
            cachePin();
            tokenState().pinCache.clear();
        }
    });
    const auto& encrypt = kspSlot("KSPEncrypt");
    constexpr int rounds = 20000;
    int served = 0;
    for (int round = 0; round < rounds; ++round) {
        if (encrypt({provider, key, bytes, 1, 0, bytes, 1024, length, NCRYPT_SILENT_FLAG}) == 0) ++served;
        token.takeCalls();
    }
    over = true;
    EXPECT_EQ(prompts, 0);
    EXPECT_GT(served, 0);
    EXPECT_LT(served, rounds);
}

// More than KSPOpenKey comes to, which has refused a name that no key bears.
TEST(KspChooseKey, ChoiceGoesByNameThenByUseThenByThereBeingOnlyOne)
{
    std::vector<QueltaKeyPair> pairs(3);
    for (auto& pair : pairs) std::ranges::fill(pair.keyId, static_cast<unsigned char>(&pair - pairs.data() + 1));
    pairs[1].usage = usageKeyExchange;
    pairs[2].usage = usageBoth;
    for (auto& pair : std::span(pairs).last(2)) setText(pair.label, "x");
    const auto expectChoice = [&](const char* name, DWORD legacyKeySpec, std::ptrdiff_t index) {
        const auto* chosen = chooseKey(pairs, name, legacyKeySpec);
        EXPECT_EQ(chosen ? chosen - pairs.data() : -1, index) << name << legacyKeySpec;
    };
    expectChoice("03030303030303030303030303030303", AT_KEYEXCHANGE, 2);
    expectChoice("x", AT_SIGNATURE, 1);
    expectChoice("?", AT_SIGNATURE, 2);
    expectChoice("?", AT_KEYEXCHANGE, 1);
    for (const DWORD other : {0, 3}) expectChoice("?", other, -1);
    pairs.resize(1);
    for (const DWORD any : {0, AT_KEYEXCHANGE}) expectChoice("?", any, 0);
}

} // namespace quelta::test
