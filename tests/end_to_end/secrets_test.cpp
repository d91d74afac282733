#include "end_to_end/token_test.h"
#include "support/child_process.h"
#include "support/machine_registry.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

namespace quelta::test {

namespace {

// The secrets are constants of the executable, and the search leaves the executable out. So the search finds no copy of its own.
// Each secret is longer than what a string keeps within itself.
constexpr std::string_view longPin = "a PIN that is 44 characters long, of letters";
constexpr std::string_view wrongPin = "a PIN that is 44 characters long, of letters7";
// The part is from the middle, since the heap overwrites the ends of a freed block.
constexpr std::string_view partOfPin = longPin.substr(12, 12);
constexpr std::wstring_view partOfWidePin = std::wstring_view(L"a PIN that is 44 characters long").substr(12, 12);

bool isSearched(const MEMORY_BASIC_INFORMATION& region)
{
    constexpr DWORD readable =
        PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return region.State == MEM_COMMIT && (region.Protect & readable) != 0 && (region.Protect & PAGE_GUARD) == 0 &&
           region.AllocationBase != GetModuleHandleA(nullptr);
}

// Counts the copies in this process's memory.
int copiesOf(std::string_view secret)
{
    const std::boyer_moore_horspool_searcher searcher(secret.begin(), secret.end());
    int count = 0;
    MEMORY_BASIC_INFORMATION region{};
    for (const char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize) {
        at = static_cast<const char*>(region.BaseAddress);
        if (!isSearched(region)) continue;
        const char* const end = at + region.RegionSize;
        for (const char* found = at; (found = std::search(found, end, searcher)) != end; ++found) ++count;
    }
    return count;
}

int copiesOfPin()
{
    return copiesOf(partOfPin) + copiesOf({reinterpret_cast<const char*>(partOfWidePin.data()), partOfWidePin.size() * 2});
}

} // namespace

class Secrets : public TokenTest {};

TEST_F(Secrets, PinIsNowhereInAProcessThatHasUsedIt)
{
    drive("pin change --new \"" + std::string(longPin) + "\"");
    EXPECT_EQ(runDisabledTest(ownExecutable(), "SecretsProcess.DISABLED_Pin"), 0U);
}

// Runs in a process of its own, with the token of the process that started it.
class SecretsProcess : public ::testing::Test {
protected:
    SecretsProcess() { registerBuiltModule(); }

    bool givePin(std::string_view text = longPin) const
    {
        const ByteView pin(reinterpret_cast<const unsigned char*>(text.data()), text.size() + 1);
        return storage.table().SetProviderProperty(storage.provider(), L"SmartCardPin", dataOf(pin), sizeOf(pin), 0) == 0;
    }
    static void pullToken()
    {
        drive("unplug");
        for (int tries = 0; tries < 500 && copiesOfPin() != 0; ++tries) Sleep(20);
        drive("plug");
    }

    LogFolder log;
    DialogUser user;
    const KeyStorage storage;
};

// A parameter or a property gives the PIN. So each copy in the process is the module's. If the user typed the PIN, the system's
// edit control would keep copies, too: tests/token/token_test.cpp searches the blocks that the module frees.
TEST_F(SecretsProcess, DISABLED_Pin)
{
    ASSERT_EQ(copiesOfPin(), 0);
    const CryptoApi csp("rsa2048");
    const auto signByCryptoApi = [&] { return !csp.sign(CALG_SHA_256, counting(9)).empty(); };
    const auto signByKeyStorage = [&] { return !storage.openLabelled("rsa2048").sign(Bytes(32)).empty(); };
    const std::tuple<const char*, std::function<bool()>, std::function<bool()>> ways[] = {
        {"PP_SIGNATURE_PIN",
         [&] {
             return CryptSetProvParam(csp.get(), PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(longPin.data()), 0) != FALSE;
         },
         signByCryptoApi},
        {"SmartCardPin", [&] { return givePin(); }, signByKeyStorage}};
    for (const auto& [way, give, sign] : ways) {
        for (const DWORD level : {0, 2, 3}) {
            setLogLevel(level);
            SCOPED_TRACE(testing::Message() << way << " at level " << level);
            EXPECT_TRUE(give());
            EXPECT_EQ(copiesOfPin(), 1) << "the cached one";
            EXPECT_TRUE(signByCryptoApi() && signByKeyStorage());
            pullToken();
            EXPECT_EQ(copiesOfPin(), 0) << "the PIN outlives the token's removal";
        }
        EXPECT_FALSE(givePin(wrongPin));
        EXPECT_EQ(copiesOfPin(), 0) << "it was refused";

        EXPECT_TRUE(give());
        for (const char* command : {"sso on", "sso expire"}) drive(command);
        user.meetsPinDialog([](PinDialog dialog) {
            EXPECT_EQ(copiesOfPin(), 0) << "it has expired, and the user is asked for it";
            dialog.pressCancel();
        });
        EXPECT_FALSE(sign());
    }
}

} // namespace quelta::test
