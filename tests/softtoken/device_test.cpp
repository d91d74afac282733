#include "support/scratch_folder.h"

#include "base/hex.h"
#include "base/windows_objects.h"
#include "store/files.h"
#include "store/pin.h"
#include "store/token_store.h"
#include "token/device_functions.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace quelta::softtoken {

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Pair;
using ::testing::SizeIs;

constexpr const char serial[] = "SOFT-1";
constexpr int attempts = 3;

// The result, and the remaining attempts: -1 if the library does not tell.
std::pair<int, int> validate(const std::string& pin)
{
    int remaining = -1;
    const int result = quelta_validatePassword(serial, pin.c_str(), 1, &remaining, nullptr);
    return {result, remaining};
}

template <class Function>
Function function(const char* library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(library), name)));
}

// Polls once in a thread that begins before the loader's lock is taken and ends after it, since both need it.
std::vector<std::string> pollUnderLoaderLock()
{
    static const auto lockLoader = function<LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*)>("ntdll.dll", "LdrLockLoaderLock");
    static const auto unlockLoader = function<LONG(NTAPI*)(ULONG, ULONG_PTR)>("ntdll.dll", "LdrUnlockLoaderLock");
    const File locked(CreateEventW(nullptr, TRUE, FALSE, nullptr)), polled(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::vector<std::string> devices;
    std::thread poller([&] {
        WaitForSingleObject(locked.get(), INFINITE);
        devices = quelta_getConnectedDeviceList(false, nullptr);
        SetEvent(polled.get());
    });
    Sleep(100);
    ULONG_PTR cookie = 0;
    lockLoader(0, nullptr, &cookie);
    SetEvent(locked.get());
    EXPECT_EQ(WaitForSingleObject(polled.get(), 5000), WAIT_OBJECT_0) << "the poll waits for the loader";
    unlockLoader(0, cookie);
    poller.join();
    return devices;
}

} // namespace

// The built library over a token of the test's own, which this process makes and changes as the command line does.
class Device : public ::testing::Test {
protected:
    Device()
    {
        StoredToken state;
        state.serial = serial;
        state.pin = newPin("1234", attempts);
        createToken(folder / "", state, true);
        plugIn(folder / "");
    }

    // Sets the folder in which the library looks for the token.
    static void plugIn(const std::filesystem::path& where) { SetEnvironmentVariableW(L"QUELTA_TOKEN_DIR", where.c_str()); }

    // Expects a device that is listed, and whose calls fail.
    void expectFailing(const std::string& deviceId = serial) const
    {
        const Bytes before = folder.read("token.json");
        EXPECT_EQ(quelta_initDevice(deviceId.c_str(), false, nullptr), 1);
        EXPECT_THAT(validate("0000"), Pair(1, -1));
        EXPECT_EQ(folder.read("token.json"), before) << "an attempt was counted";
    }

    const ScratchFolder folder;
};

TEST_F(Device, TellsTheRoomThatADigestNeedsAndGoesOnWithIt)
{
    constexpr int mechanismSha256 = 3;
    void* hash = nullptr;
    ASSERT_EQ(quelta_initHash(serial, mechanismSha256, &hash, nullptr), 0);
    EXPECT_EQ(quelta_updateHash(hash, reinterpret_cast<const unsigned char*>("abc"), 3, nullptr), 0);
    Bytes room(32);
    for (int capacity : {31, 0, -1}) {
        EXPECT_EQ(quelta_finalHash(hash, room.data(), &capacity, nullptr), 7);
        EXPECT_EQ(capacity, 32);
        EXPECT_THAT(room, Each(0));
    }
    int size = 32;
    EXPECT_EQ(quelta_finalHash(hash, room.data(), &size, nullptr), 0);
    EXPECT_EQ(size, 32);
    EXPECT_EQ(toHex(room), "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
    EXPECT_EQ(quelta_finalHash(hash, room.data(), &size, nullptr), 2) << "a digest that is over";
}

TEST_F(Device, IsPolledWithoutTheLoader)
{
    EXPECT_THAT(pollUnderLoaderLock(), ElementsAre(serial));
    const auto toUnixPath = function<char*(CDECL*)(const wchar_t*)>("kernel32.dll", "wine_get_unix_file_name");
    if (toUnixPath == nullptr) GTEST_SKIP() << "there are no Unix paths here";
    plugIn(toUnixPath((folder / "").c_str()));
    EXPECT_THAT(pollUnderLoaderLock(), ElementsAre(serial));
    folder.write("token.json", toBytes("damaged"));
    EXPECT_THAT(pollUnderLoaderLock(), SizeIs(1));
}

TEST_F(Device, FailsWhereAttemptsCannotBeCounted)
{
    ASSERT_EQ(quelta_initDevice(serial, false, nullptr), 0);
    EXPECT_EQ(folder.fileCount(), 2) << "something stays beside the token";
    // With the first folder no file can be made beside token.json, with the second one the lock can't be opened.
    for (const char* name : {"token.json.new", "token.lock"}) {
        std::filesystem::remove(folder / name);
        std::filesystem::create_directory(folder / name);
        expectFailing();
        EXPECT_THAT(quelta_getConnectedDeviceList(false, nullptr), ElementsAre(serial)) << name;
        std::filesystem::remove(folder / name);
    }
    EXPECT_THAT(validate("0000"), Pair(4, attempts - 1));
}

TEST_F(Device, WaitsWhileAnotherProcessChangesTheToken)
{
    File changing = lockFile(folder / "token.lock", LockKind::exclusive);
    std::atomic<bool> answered = false;
    std::jthread caller([&] {
        validate("0000");
        answered = true;
    });
    Sleep(200);
    EXPECT_FALSE(answered);
    changing.reset();
}

TEST_F(Device, FailsIfItsStateIsDamaged)
{
    const std::string good = toText(folder.read("token.json"));
    const auto changed = [good](const std::string& from, const std::string& to) {
        return std::string(good).replace(good.find(from), from.size(), to);
    };
    for (const std::string& damaged : {good.substr(0, good.size() / 2), std::string(), changed("\"hash\": \"", "\"hash\": \"00"),
                                       changed("\"remaining\": 3", "\"remaining\": 4"), changed("\"pin\"", "\"nip\"")}) {
        SCOPED_TRACE(damaged);
        folder.write("token.json", toBytes(damaged));
        const auto devices = quelta_getConnectedDeviceList(false, nullptr);
        ASSERT_THAT(devices, SizeIs(1));
        expectFailing(devices[0]);
        expectFailing();
    }
    folder.write("token.json", toBytes(good));
    EXPECT_EQ(validate("1234").first, 0);
}

} // namespace quelta::softtoken
