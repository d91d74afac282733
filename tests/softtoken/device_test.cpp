#include "softtoken/device_test.h"
#include "base/hex.h"

#include "base/windows_objects.h"
#include "store/files.h"
#include "token/device_functions.h"

#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <thread>

namespace quelta::softtoken {

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

MATCHER_P2(Answers, result, remaining, "")
{
    return arg.result == result && arg.remaining == remaining;
}

constexpr int mechanismSha256 = 3;

// Of a text that is given backwards, so that the search does not find what it searches with.
std::size_t copiesInMemory(const std::string& backwards)
{
    const std::boyer_moore_horspool_searcher searcher(backwards.rbegin(), backwards.rend());
    std::vector<char> piece(1 << 16);
    std::size_t count = 0;
    MEMORY_BASIC_INFORMATION region{};
    for (const char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;) {
        const char* const end = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
        const bool readable = region.State == MEM_COMMIT && (region.Protect & (PAGE_NOACCESS | PAGE_GUARD)) == 0;
        SIZE_T got = 0;
        for (at = static_cast<const char*>(region.BaseAddress); readable && at < end; at += piece.size() - backwards.size()) {
            const auto size = std::min<SIZE_T>(piece.size(), static_cast<SIZE_T>(end - at));
            if (!ReadProcessMemory(GetCurrentProcess(), at, piece.data(), size, &got)) break;
            const auto last = piece.begin() + static_cast<std::ptrdiff_t>(got);
            if (std::search(piece.begin(), last, searcher) != last) ++count;
        }
        at = end;
    }
    return count;
}

template <class Function>
Function function(const char* library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(library), name)));
}

using Event = WindowsObject<HANDLE, CloseHandle>;

Event newEvent()
{
    return Event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

// Holds the lock that the loader holds while it unloads a library.
class LoaderLock {
public:
    LoaderLock() { function<LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*)>("ntdll.dll", "LdrLockLoaderLock")(0, nullptr, &cookie_); }
    ~LoaderLock() { function<LONG(NTAPI*)(ULONG, ULONG_PTR)>("ntdll.dll", "LdrUnlockLoaderLock")(0, cookie_); }
    LoaderLock(const LoaderLock&) = delete;
    LoaderLock& operator=(const LoaderLock&) = delete;

private:
    ULONG_PTR cookie_ = 0;
};

// Polls once in a thread that begins before the loader's lock is taken and ends after it, since both need it.
std::vector<std::string> pollUnderLoaderLock()
{
    constexpr DWORD patience = 5000;
    const Event locked = newEvent();
    const Event polled = newEvent();
    std::vector<std::string> devices;
    std::thread poller([&] {
        WaitForSingleObject(locked.get(), INFINITE);
        devices = quelta_getConnectedDeviceList(false, nullptr);
        SetEvent(polled.get());
    });
    Sleep(100);
    {
        const LoaderLock lock;
        SetEvent(locked.get());
        EXPECT_EQ(WaitForSingleObject(polled.get(), patience), WAIT_OBJECT_0) << "the poll waits for the loader";
    }
    poller.join();
    return devices;
}

} // namespace

TEST_F(Device, TellsTheRoomThatADigestNeedsAndGoesOnWithIt)
{
    void* hash = nullptr;
    ASSERT_EQ(quelta_initHash(serial(), mechanismSha256, &hash, nullptr), 0);
    EXPECT_EQ(quelta_updateHash(hash, reinterpret_cast<const unsigned char*>("abc"), 3, nullptr), 0);
    std::array<unsigned char, 32> room{};
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

TEST_F(Device, LeavesNoCopyOfThePinInMemory)
{
    // Its end is what is looked for: releasing a block overwrites the block's beginning.
    const std::string backwards = "noitatneserper-txet-ni-reven-dna-terces-6135";
    const std::string end = backwards.substr(0, 20);
    std::string pin(backwards.rbegin(), backwards.rend());
    EXPECT_GT(copiesInMemory(end), 0U) << "the search itself";
    changePin(pin);
    for (int round = 0; round < 3; ++round) EXPECT_EQ(validate(pin).result, 0);
    std::ranges::fill(pin, ' ');
    EXPECT_EQ(copiesInMemory(end), 0U);
}

TEST_F(Device, IsPolledWithoutTheLoader)
{
    EXPECT_THAT(pollUnderLoaderLock(), ElementsAre(serial()));
    using ToUnixPath = char*(CDECL*)(const wchar_t*);
    const auto toUnixPath = function<ToUnixPath>("kernel32.dll", "wine_get_unix_file_name");
    if (toUnixPath == nullptr) GTEST_SKIP() << "there are no Unix paths here";
    const std::string unixPath = toUnixPath((folder / "").c_str());
    ASSERT_TRUE(unixPath.starts_with("/")) << unixPath;
    plugIn(unixPath);
    EXPECT_THAT(pollUnderLoaderLock(), ElementsAre(serial()));
    folder.write("token.json", toBytes("damaged"));
    EXPECT_THAT(pollUnderLoaderLock(), SizeIs(1));
}

// As an application sees it: a device that is there, and fails.
void expectFailing(const ScratchFolder& folder, const char* deviceId)
{
    const Bytes before = folder.read("token.json");
    EXPECT_EQ(quelta_initDevice(deviceId, false, nullptr), 1);
    EXPECT_THAT(Device::validate("0000"), Answers(1, -1));
    EXPECT_EQ(folder.read("token.json"), before) << "an attempt was counted";
}

TEST_F(Device, FailsWhereAttemptsCannotBeCounted)
{
    ASSERT_EQ(quelta_initDevice(serial(), false, nullptr), 0);
    EXPECT_EQ(folder.fileCount(), 2) << "something stays beside the token";
    {
        SCOPED_TRACE("nothing can be made beside token.json");
        std::filesystem::create_directory(folder / "token.json.new");
        expectFailing(folder, serial());
        std::filesystem::remove(folder / "token.json.new");
    }
    {
        SCOPED_TRACE("the lock can't be had");
        std::filesystem::remove(folder / "token.lock");
        std::filesystem::create_directory(folder / "token.lock");
        expectFailing(folder, serial());
        EXPECT_THAT(quelta_getConnectedDeviceList(false, nullptr), ElementsAre(serial()));
        std::filesystem::remove(folder / "token.lock");
    }
    EXPECT_THAT(validate("0000"), Answers(4, attempts - 1));
}

TEST_F(Device, FailsIfItsStateIsDamaged)
{
    const Bytes good = folder.read("token.json");
    const std::string text(good.begin(), good.end());
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string other = text;
        return other.replace(other.find(from), from.size(), to);
    };
    for (const std::string& damaged : {text.substr(0, text.size() / 2), std::string(), changed("\"hash\": \"", "\"hash\": \"00"),
                                       changed("\"remaining\": 3", "\"remaining\": 4"), changed("\"pin\"", "\"nip\"")}) {
        SCOPED_TRACE(damaged);
        folder.write("token.json", toBytes(damaged));
        const auto devices = quelta_getConnectedDeviceList(false, nullptr);
        ASSERT_THAT(devices, SizeIs(1));
        expectFailing(folder, devices[0].c_str());
        expectFailing(folder, serial());
    }
    folder.write("token.json", good);
    EXPECT_EQ(validate(rightPin).result, 0);
}

} // namespace quelta::softtoken
