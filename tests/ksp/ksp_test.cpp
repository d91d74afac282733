// What no transcript sees.
#include "ksp/key.h"
#include "ksp/ksp_calls.h"
#include "support/machine_registry.h"

#include <atomic>
#include <stdexcept>

namespace quelta::test {

using KspSilentCall = ModuleTest;

// As the device monitor clears it: whatever the moment, a silent call has the PIN or is refused.
TEST_F(KspSilentCall, NeverComesToAPromptWhileThePinIsCleared)
{
    setLogLevel(0);
    ULONG_PTR provider = 0, key = 0;
    const std::wstring name = wideKeyName(token.withKeyPair(usageBoth, algorithmRsa1024));
    requireStatus(kspSlot("KSPOpenProvider")({addressOf(&provider)}), "KSPOpenProvider");
    requireStatus(kspSlot("KSPOpenKey")({provider, addressOf(&key), addressOf(name.c_str())}), "KSPOpenKey");
    std::array<BYTE, 256> room{};
    const ULONG_PTR data = addressOf(room.data());
    DWORD length = 0;
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
        if (encrypt({provider, key, data, 1, 0, data, room.size(), addressOf(&length), NCRYPT_SILENT_FLAG}) == 0) ++served;
        token.takeCalls();
    }
    over = true;
    EXPECT_EQ(prompts, 0);
    EXPECT_GT(served, 0);
    EXPECT_LT(served, rounds);
    kspSlot("KSPFreeKey")({provider, key});
    kspSlot("KSPFreeProvider")({provider});
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
