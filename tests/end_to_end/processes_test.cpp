#include "end_to_end/crypto_api.h"
#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"
#include "support/child_process.h"

#include <gmock/gmock.h>

#include <fstream>
#include <thread>

namespace quelta::test {

namespace {

using namespace std::chrono_literals;
using ::testing::Each;
using ::testing::Optional;

constexpr std::size_t keysEach = 6;

} // namespace

class TwoProcesses : public EndToEndTest {};

TEST_F(TwoProcesses, UseOneTokenAtOnce)
{
    const KeyStorage storage;
    const std::size_t before = storage.names().size();
    std::optional<DWORD> codes[2];
    for (std::vector<std::jthread> threads; auto& code : codes) {
        threads.emplace_back([&code] { code = runDisabledTest(ownExecutable(), "OneProcess.DISABLED_SignsAndMakesKeys", 120s); });
    }
    EXPECT_THAT(codes, Each(Optional(0U)));
    EXPECT_EQ(storage.names().size(), before + 2 * keysEach);
}

TEST(OneProcess, DISABLED_SignsAndMakesKeys)
{
    registerBuiltModule();
    const KeyStorage storage;
    storage.usePin();
    const Context context = openContext("rsa2048");
    const Bytes message = bytesOf("message");
    for (std::size_t i = 0; i < keysEach; ++i) {
        const StoredKey made = storage.create(L"ECDSA_P256");
        ASSERT_EQ(storage.table().FinalizeKey(storage.provider(), made.get(), 0), 0);
        const Bytes signature = sign(hashOf(context, CALG_SHA_256, message));
        EXPECT_TRUE(verifies(hashOf(context, CALG_SHA_256, message), signature, userKey(context, AT_SIGNATURE)));
    }
}

// For survives_kill.sh, which ends it: writes a line for each key that the token has acknowledged.
TEST(OneProcess, DISABLED_StoresKeysUntilKilled)
{
    const char* acknowledged = std::getenv("QUELTA_ACKNOWLEDGED");
    ASSERT_TRUE(acknowledged);
    std::ofstream lines(acknowledged, std::ios::app);
    const KeyStorage storage;
    storage.usePin();
    const Bytes key{'K', 'D', 'B', 'M', 1, 0, 0, 0, 16, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (;;) {
        storage.import(L"KeyDataBlob", key);
        lines << "stored" << std::endl;
    }
}

} // namespace quelta::test
