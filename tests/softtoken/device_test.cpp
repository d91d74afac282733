#include "support/scratch_folder.h"

#include "base/windows_objects.h"
#include "store/pin.h"
#include "store/token_store.h"
#include "token/device_functions.h"

#include <gmock/gmock.h>

#include <thread>

namespace quelta::softtoken {

namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr const char serial[] = "SOFT-1";

template <class Function>
Function function(const char* library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(library), name)));
}

// Polls once while another thread holds the loader lock. The polling thread begins before and ends after that, since both need
// the lock.
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

// Tests the built library with a token that this process makes as the command line does.
class Device : public ::testing::Test {
protected:
    Device()
    {
        StoredToken state;
        state.serial = serial;
        state.pin = newPin("1234", 3);
        createToken(folder / "", state, true);
        plugIn(folder / "");
    }

    // Sets the folder in which the library looks for the token.
    static void plugIn(const std::filesystem::path& where) { SetEnvironmentVariableW(L"QUELTA_TOKEN_DIR", where.c_str()); }

    const ScratchFolder folder;
};

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

} // namespace quelta::softtoken
