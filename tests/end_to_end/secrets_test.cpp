#include "common/hex.h"
#include "end_to_end/token_test.h"
#include "support/child_process.h"
#include "support/machine_registry.h"

#include <gmock/gmock.h>

#include <cstring>
#include <tuple>

namespace quelta::test {

namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

// Longer than what a string keeps within itself.
constexpr const char longPin[] = "a PIN that is 44 characters long, of letters";
constexpr const char wrongPin[] = "a PIN that is 44 characters long, of letters7";
constexpr const char keysVariable[] = "QUELTA_TEST_KEYS";
// Over what is looked for, so that the one who looks holds no copy.
constexpr unsigned char mask = 0xA5;

Bytes masked(ByteView bytes)
{
    Bytes result;
    result.reserve(bytes.size());
    for (const unsigned char byte : bytes) result.push_back(byte ^ mask);
    return result;
}

bool isReadable(const MEMORY_BASIC_INFORMATION& region)
{
    constexpr DWORD readable =
        PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return region.State == MEM_COMMIT && (region.Protect & readable) != 0 && (region.Protect & PAGE_GUARD) == 0;
}

// With so many bytes from one to the next, and zeros in between.
bool isAt(const unsigned char* at, const unsigned char* end, ByteView pattern, std::size_t step)
{
    if (static_cast<std::size_t>(end - at) < pattern.size() * step) return false;
    for (std::size_t i = 0; i < pattern.size() * step; ++i) {
        if ((at[i] ^ (i % step == 0 ? mask : 0)) != (i % step == 0 ? pattern[i / step] : 0)) return false;
    }
    return true;
}

// Where this process's memory holds what was masked, as bytes or as UTF-16; but for the executable, in which the PIN is a
// constant.
std::vector<std::string> copiesOf(ByteView pattern)
{
    std::vector<std::string> found;
    MEMORY_BASIC_INFORMATION region{};
    for (const unsigned char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize) {
        at = static_cast<const unsigned char*>(region.BaseAddress);
        if (!isReadable(region) || region.AllocationBase == GetModuleHandleA(nullptr)) continue;
        const unsigned char* const end = at + region.RegionSize;
        for (auto* first = at; first < end; ++first) {
            first =
                static_cast<const unsigned char*>(std::memchr(first, pattern[0] ^ mask, static_cast<std::size_t>(end - first)));
            if (!first) break;
            for (const std::size_t step : {1, 2}) {
                if (!isAt(first, end, pattern, step)) continue;
                found.push_back((testing::Message()
                                 << (step == 1 ? "bytes" : "UTF-16") << " at " << static_cast<const void*>(first)
                                 << " in the region of " << region.AllocationBase << ", type " << std::hex << region.Type)
                                    .GetString());
            }
        }
    }
    return found;
}

} // namespace

class Secrets : public TokenTest {};

TEST_F(Secrets, AreNowhereInAProcessThatHasUsedThem)
{
    const CryptoApi csp("rsa2048");
    Bytes key(32);
    ASSERT_TRUE(CryptGenRandom(csp.get(), sizeOf(key), key.data()));
    const Bytes encrypted = CryptoApi::encrypt(csp.userKey(AT_KEYEXCHANGE), key);
    SetEnvironmentVariableA(keysVariable, (toHex(masked(key)) + toHex(encrypted)).c_str());
    drive(std::string("pin change --new \"") + longPin + "\"");
    for (const char* test : {"Pin", "SymmetricKeys"})
        EXPECT_EQ(runDisabledTest(ownExecutable(), std::string("SecretsProcess.DISABLED_") + test), 0U) << test;
}

// Alone in its process, over the token of the one that started it.
class SecretsProcess : public ::testing::Test {
protected:
    SecretsProcess() { registerBuiltModule(); }

    bool givePin(const char* text = longPin) const
    {
        auto* const pin = reinterpret_cast<BYTE*>(const_cast<char*>(text));
        const auto size = static_cast<DWORD>(std::strlen(text) + 1);
        return storage.table().SetProviderProperty(storage.provider(), L"SmartCardPin", pin, size, 0) == 0;
    }
    void pullToken() const
    {
        constexpr DWORD silent = 0x40;
        Bytes hash(32), signature(256);
        DWORD size = 0;
        const StoredKey key = storage.openLabelled("rsa2048");
        drive("unplug");
        const auto sign = [&] {
            return key.call(&Table::SignHash, nullptr, hash.data(), 32, signature.data(), 256, &size, silent);
        };
        for (int tries = 0; tries < 500 && sign() != NTE_SILENT_CONTEXT; ++tries) Sleep(20);
        EXPECT_EQ(sign(), NTE_SILENT_CONTEXT) << "the PIN outlives the token's removal";
        drive("plug");
    }

    LogFolder log;
    DialogUser user;
    const KeyStorage storage;
};

// A parameter and a property give the PIN, so that each copy is the module's, and the whole process is searched. The system's
// control keeps copies of a PIN that the user types: tests/token/wiping_test.cpp searches the module's own memory for that one.
TEST_F(SecretsProcess, DISABLED_Pin)
{
    // From the middle, so that parts are found, and what the heap has written its own into.
    const Bytes pin = masked({reinterpret_cast<const unsigned char*>(longPin) + 12, 12});
    ASSERT_THAT(copiesOf(pin), IsEmpty());
    const CryptoApi csp("rsa2048");
    const auto signByCryptoApi = [&] { return !csp.sign(CALG_SHA_256, counting(9)).empty(); };
    const auto signByKeyStorage = [&] { return !storage.openLabelled("rsa2048").sign(Bytes(32)).empty(); };
    const std::tuple<const char*, std::function<bool()>, std::function<bool()>> ways[] = {
        {"PP_SIGNATURE_PIN",
         [&] { return CryptSetProvParam(csp.get(), PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(longPin), 0) != FALSE; },
         signByCryptoApi},
        {"SmartCardPin", [&] { return givePin(); }, signByKeyStorage}};
    for (const auto& [way, give, sign] : ways) {
        for (const DWORD level : {0, 2, 3}) {
            setLogLevel(level);
            SCOPED_TRACE(testing::Message() << way << " at level " << level);
            EXPECT_TRUE(give());
            EXPECT_THAT(copiesOf(pin), SizeIs(1)) << "the cached one";
            EXPECT_TRUE(signByCryptoApi() && signByKeyStorage());
            pullToken();
            EXPECT_THAT(copiesOf(pin), IsEmpty());
        }
        EXPECT_FALSE(givePin(wrongPin));
        EXPECT_THAT(copiesOf(pin), IsEmpty()) << "it was refused";

        EXPECT_TRUE(give());
        for (const char* command : {"sso on", "sso expire"}) drive(command);
        user.meetsPinDialog([&pin](PinDialog dialog) {
            EXPECT_THAT(copiesOf(pin), IsEmpty()) << "it has expired, and the user is asked for it";
            dialog.pressCancel();
        });
        EXPECT_FALSE(sign());
    }
}

TEST_F(SecretsProcess, DISABLED_SymmetricKeys)
{
    const Bytes all = fromHex(std::getenv(keysVariable)).value(), encrypted = toBytes(ByteView(all).subspan(32));
    const ByteView key = ByteView(all).subspan(8, 16);
    ASSERT_TRUE(givePin());
    const CryptoApi csp("rsa2048");
    const CryptKey pair = csp.userKey(AT_KEYEXCHANGE);
    const StoredKey stored = storage.openLabelled("rsa2048");
    const Bytes blob = keyBlob(SIMPLEBLOB, CALG_AES_256, concat({Bytes(4), encrypted}));
    for (const DWORD level : {0, 2, 3}) {
        setLogLevel(level);
        SCOPED_TRACE(level);
        {
            const CryptKey imported = csp.import(blob, pair.get());
            CryptoApi::decrypt(imported, Bytes(32));
            EXPECT_THAT(copiesOf(key), SizeIs(1)) << "in the handle of CryptoAPI";
        }
        EXPECT_THAT(copiesOf(key), IsEmpty());
        {
            const StoredKey imported = storage.import(L"OpaqueTransport", reversed(encrypted), stored.get());
            imported.decrypt(Bytes(32), 0);
            EXPECT_THAT(copiesOf(key), SizeIs(1)) << "in the handle of key storage";
        }
        EXPECT_THAT(copiesOf(key), IsEmpty());
    }
}

} // namespace quelta::test
