#include "ksp/key.h"
#include "ksp/ksp_scenario.h"
#include "support/machine_registry.h"

#include <atomic>
#include <stdexcept>

namespace quelta::test {

using KspSilentCall = ModuleTest;

// The device monitor may clear the PIN at any moment. A silent call has the PIN or is refused.
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
    const std::jthread clearing([&] {
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

} // namespace quelta::test
