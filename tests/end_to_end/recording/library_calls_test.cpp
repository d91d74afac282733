// Run with the recording library on the path.

#include "end_to_end/interfaces.h"
#include "end_to_end/recording/recording_library.h"
#include "support/log_folder.h"
#include "support/test_bytes.h"

#include <gmock/gmock.h>

#include <regex>
#include <tuple>

namespace quelta::test {

namespace {

// Each place has a value of its own. Flags have two values only, so all of them get `flag`.
template <class Argument>
Argument nextArgument(std::size_t& place, bool flag)
{
    ++place;
    static CertificateDetails details;
    static unsigned char memory[12][sizeof(void*)];
    static constexpr const char* texts[] = {"", "first", "second", "third"};
    if constexpr (std::same_as<Argument, bool>)
        return flag;
    else if constexpr (std::same_as<Argument, CertificateDetails&>)
        return details;
    else if constexpr (std::same_as<Argument, const char*>)
        return texts[place];
    else if constexpr (std::is_pointer_v<Argument>)
        return reinterpret_cast<Argument>(memory[place]);
    else
        return static_cast<Argument>(place);
}

} // namespace

class LibraryCalls : public ::testing::Test {
protected:
    std::vector<std::string> takeCalls() { return std::exchange(recording.calls, {}); }

    template <class Result, class... Arguments>
    void arrives(const char* exported, Result (DeviceLibrary::*function)(Arguments...))
    {
        for (const bool flag : {false, true}) {
            std::size_t place = 0;
            const std::tuple<Arguments...> arguments{nextArgument<Arguments>(place, flag)...};
            std::apply([&](auto&&... each) { static_cast<void>((recording.forwarding.*function)(each...)); }, arguments);
            const auto expected = std::apply([&](const auto&... each) { return callText(exported, each...); }, arguments);
            EXPECT_THAT(takeCalls(), ::testing::ElementsAre(expected));
        }
    }

    const Library library{LoadLibraryA("QueltaDSCLibrary.dll")};
    RecordingLibrary& recording = *reinterpret_cast<decltype(&recordingLibrary)>(
        reinterpret_cast<void*>(GetProcAddress(library.get(), "recordingLibrary")))();
};

TEST_F(LibraryCalls, ArriveWithEachArgumentInItsPlace)
{
    arrives("quelta_init", &DeviceLibrary::init);
    arrives("quelta_initDevice", &DeviceLibrary::initDevice);
    arrives("quelta_getConnectedDeviceList", &DeviceLibrary::getConnectedDeviceList);
    arrives("quelta_getTokenInfo", &DeviceLibrary::getTokenInfo);
    arrives("quelta_validatePassword", &DeviceLibrary::validatePassword);
    arrives("quelta_getKeyPairList", &DeviceLibrary::getKeyPairList);
    arrives("quelta_getCertificateList", &DeviceLibrary::getCertificateList);
    arrives("quelta_getAesKeyList", &DeviceLibrary::getAesKeyList);
    arrives("quelta_getCertificateDetails", &DeviceLibrary::getCertificateDetails);
    arrives("quelta_generateKeyPair", &DeviceLibrary::generateKeyPair);
    arrives("quelta_deleteKeyPair", &DeviceLibrary::deleteKeyPair);
    arrives("quelta_importCertificate", &DeviceLibrary::importCertificate);
    arrives("quelta_importAesKey", &DeviceLibrary::importAesKey);
    arrives("quelta_signHash", &DeviceLibrary::signHash);
    arrives("quelta_verifySignatureHash", &DeviceLibrary::verifySignatureHash);
    arrives("quelta_decrypt", &DeviceLibrary::decrypt);
    arrives("quelta_encrypt", &DeviceLibrary::encrypt);
    arrives("quelta_decrypt_aes", &DeviceLibrary::decryptAes);
    arrives("quelta_decryptSymetric", &DeviceLibrary::decryptSymetric);
    arrives("quelta_initHash", &DeviceLibrary::initHash);
    arrives("quelta_updateHash", &DeviceLibrary::updateHash);
    arrives("quelta_finalHash", &DeviceLibrary::finalHash);
    arrives("quelta_generateRamdomNumber", &DeviceLibrary::generateRamdomNumber);
}

// The process is fresh: random numbers come from the hardware, for which their flag is false.
TEST_F(LibraryCalls, OfTheBuiltModulePassWhatTheLibraryExpects)
{
    LogFolder log;
    registerBuiltModule();
    const KeyStorage storage;
    storage.usePin();
    const CryptoApi csp;
    Bytes bytes(256);
    CryptGenRandom(csp.get(), 16, bytes.data());
    csp.sign(CALG_SHA_256, counting(9));
    CryptoApi::decrypt(csp.userKey(AT_KEYEXCHANGE), bytes);
    const StoredKey key = storage.open(L"11111111111111111111111111111111");
    key.sign(ByteView(bytes).first(20));
    key.decrypt(ByteView(bytes).first(128), NCRYPT_PAD_PKCS1_FLAG);
    key.call(&Table::DeleteKey, 0);
    auto calls = takeCalls();
    for (std::string& call : calls) call = std::regex_replace(call, std::regex("@[0-9]+"), "*");
    EXPECT_THAT(calls,
                ::testing::ElementsAre(
                    "quelta_init 0 2", "quelta_getConnectedDeviceList false null", "quelta_initDevice DEVICE false null",
                    "quelta_validatePassword DEVICE 135790 1 * null", "quelta_getKeyPairList DEVICE null",
                    "quelta_generateRamdomNumber DEVICE 16 * false null", "quelta_initHash DEVICE 3 * null",
                    "quelta_updateHash null * 9 null", "quelta_finalHash null * * null",
                    "quelta_signHash DEVICE * 135790 * 32 * * false null", "quelta_decrypt DEVICE * 135790 * 256 * * true null",
                    "quelta_signHash DEVICE * 135790 * 20 * * false null", "quelta_decrypt DEVICE * 135790 * 128 * * true null",
                    "quelta_deleteKeyPair DEVICE * 135790 true null"));
}

} // namespace quelta::test
