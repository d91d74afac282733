#include "ksp/ksp_test.h"

#include "support/machine_registry.h"

#include <array>
#include <atomic>
#include <stdexcept>

namespace quelta::test {

using KspSilentCall = KspTest;

// As the device monitor clears it: whatever the moment, a silent call has the PIN or is refused.
TEST_F(KspSilentCall, NeverComesToAPromptWhileThePinIsCleared)
{
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
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
    std::array<BYTE, 256> bytes{};
    DWORD size = 0;
    int served = 0;
    constexpr int rounds = 20000;
    for (int round = 0; round < rounds; ++round) {
        if (ksp.Encrypt(provider, key, bytes.data(), 1, nullptr, bytes.data(), 256, &size, NCRYPT_SILENT_FLAG) == 0) ++served;
        token.takeCalls();
    }
    over = true;
    EXPECT_EQ(prompts, 0);
    EXPECT_GT(served, 0);
    EXPECT_LT(served, rounds);
}

} // namespace quelta::test
