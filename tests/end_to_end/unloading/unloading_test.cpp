#include "end_to_end/interfaces.h"
#include "support/child_process.h"
#include "support/holdings.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"
#include "support/test_bytes.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace quelta::test {

// Each test runs in a process of its own.
class Unloading : public ::testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Unloading,
                         ::testing::Values("TwentyRounds", "LogLevelRaisedWhileItWaits", "ProcessEndsThoughLoaded"),
                         [](const auto& row) { return row.param; });

TEST_P(Unloading, EndsWell)
{
    EXPECT_EQ(runDisabledTest(ownExecutable(), std::string("UnloadingProcess.DISABLED_") + GetParam()), 0U);
}

class UnloadingProcess : public ::testing::Test {
protected:
    UnloadingProcess()
    {
        _putenv_s("QUELTA_TOKEN_DIR", (log.path() / "token").string().c_str());
        const auto tool = ownExecutable().parent_path().parent_path() / "softtoken" / "quelta-token.exe";
        for (const char* command : {"init --pin 1234", "keygen --type aes128", "keygen", "sso on"})
            EXPECT_EQ(runProcess("\"" + tool.string() + "\" " + command), 0U) << command;
        registerBuiltModule();
    }

    LogFolder log;
};

TEST_F(UnloadingProcess, DISABLED_TwentyRounds)
{
    constexpr int rounds = 20;
    constexpr int firstRounds = 2;
    Holdings before{};
    for (int round = 1; round <= rounds; ++round) {
        {
            const KeyStorage storage;
            const CryptoApi csp;
            ASSERT_TRUE(csp.get());
            // No key of the token can decrypt this key.
            const Bytes simple = keyBlob(SIMPLEBLOB, CALG_AES_128, concat({littleEndian({CALG_RSA_KEYX}), Bytes(256, 1)}));
            EXPECT_FALSE(csp.import(simple, csp.userKey(AT_KEYEXCHANGE).get()));
            EXPECT_EQ(storage.import(L"OpaqueKeyBlob", Bytes(24)).status(), NTE_BAD_KEY);
            // In every other round the monitor sleeps when the module is unloaded.
            if (round % 2 == 0) Sleep(100);
        }
        ASSERT_EQ(GetModuleHandleA("QueltaCSP.dll"), nullptr) << "round " << round;

        const std::string text = log.takeText();
        EXPECT_TRUE(text.ends_with("Monitor thread joined (stopDeviceMonitor).\n")) << text;
        EXPECT_TRUE(round % 2 || text.contains("Device monitor thread stopped.")) << text;
        if (round == firstRounds) before = holdings();
    }
    ASSERT_GT(before[1], 0) << "the system does not list them";
    // The system keeps a few bytes in each round.
    before[3] += rounds - firstRounds;
    // Idle threads of the process's pool leave by themselves after some seconds.
    for (int tries = 0; tries < 200 && !nothingMore(holdings(), before); ++tries) Sleep(100);
    EXPECT_TRUE(nothingMore(holdings(), before))
        << testing::PrintToString(holdings()) << " in place of " << testing::PrintToString(before);
}

// The monitor then writes the process's first line, while the unloading thread holds the loader lock. If the line looked up a
// function for the first time, it would wait for ever.
TEST_F(UnloadingProcess, DISABLED_LogLevelRaisedWhileItWaits)
{
    setLogLevel(2);
    {
        const KeyStorage storage;
        ASSERT_EQ(storage.status(), 0);
        Sleep(100);
        ASSERT_EQ(log.takeText(), "");
        setLogLevel(3);
    }
    EXPECT_THAT(log.takeText(), ::testing::HasSubstr("Device monitor thread stopped."));
}

TEST_F(UnloadingProcess, DISABLED_ProcessEndsThoughLoaded)
{
    const auto* never = new KeyStorage;
    EXPECT_EQ(never->status(), 0);
    Sleep(100);
}

} // namespace quelta::test
