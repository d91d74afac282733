#pragma once

#include "support/test_bytes.h"

#include "token/device_library.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace quelta::test {

// The library's functions, and the device monitor's use of one.
#define QUELTA_DEVICE_CALLS                                                                                                      \
    init, initDevice, getConnectedDeviceList, getTokenInfo, validatePassword, getKeyPairList, getCertificateList, getAesKeyList, \
        getCertificateDetails, generateKeyPair, deleteKeyPair, importCertificate, importAesKey, signHash, verifySignatureHash,   \
        decrypt, encrypt, decryptAes, decryptSymetric, initHash, updateHash, finalHash, generateRamdomNumber, monitorPoll
enum class Call { QUELTA_DEVICE_CALLS };
Call callNamed(const std::string& name);

// The output of a call. The bytes never go past a capacity that the call states; the reported length may lie.
struct Given {
    // The call's own default if there are none.
    std::optional<Bytes> bytes;
    std::optional<int> reportedLength;
    // If the library allocates the buffer: no buffer at all.
    bool nullBuffer = false;
    // Although the call is refused.
    bool evenIfRefused = false;
};

// The content and the answers of a token. As a test begins, one is connected, with the PIN "1234" and nothing on it.
struct FakeToken {
    // The records stay where they are, so a test may change their fields at any time.
    std::deque<QueltaKeyPair> keyPairs;
    std::deque<QueltaCertificate> certificates;
    std::deque<QueltaSymmetricKey> aesKeys;
    TokenInfo info{};
    std::string pin = "1234";
    int attempts = 10;

    Given signature;      // default: as many bytes as there is room for
    Given digest;         // default: 32 bytes, or what there is room for
    Given plain;          // of decrypt; default: "plain text"
    Given cipher;         // of encrypt; default: 256 bytes
    Given symmetricPlain; // of decryptSymetric; default: the input
    Given unwrapped;      // of decryptAes; default: 16 bytes
    // They fill the record that they are handed. Default: an identifier, and for a key pair a public key.
    std::function<void(QueltaKeyPair&)> onGenerate;
    std::function<void(QueltaSymmetricKey&)> onImportAesKey;
    // How often the token has made, stored or deleted something.
    int changes = 0;
    // Hashes that were begun, less those that were finished.
    int openHashes = 0;

    // Told of every call that is not the device monitor's, worded as below, and of what it answered.
    std::function<void(const std::string& call, const std::string& answer)> onCall;

protected:
    std::vector<std::string> devices_ = {"TOKEN-1"};
    std::vector<std::string> calls_;
    std::map<Call, std::deque<int>> results_;
    std::deque<int> remaining_;
    std::map<Call, std::function<void()>> hooks_;
    std::map<Bytes, Bytes> details_;
    int hashes_ = 0;
};

// A device library whose token holds what a test says and answers what a test says. Every call succeeds unless told otherwise.
// Lists come back in storage that the next call spoils.
//
// The device monitor asks for the connected devices too: its calls are counted and not recorded. Every call of a thread that is
// not the test's own is taken for the monitor's.
class FakeDeviceLibrary : public FakeToken {
public:
    static constexpr const char deviceId[] = "TOKEN-1";

    static FakeDeviceLibrary& instance();

    void reset();
    void become(const FakeToken& other);

    QueltaKeyPair& withKeyPair(std::uint32_t usage, std::uint32_t algorithm);
    QueltaCertificate& withCertificate(ByteView der);
    // Belongs to the key by its reference and label; its details give the key's public key.
    QueltaCertificate& withCertificateOf(const QueltaKeyPair& pair, ByteView der);
    QueltaSymmetricKey& withAesKey(std::uint32_t encryptionType);
    // getCertificateDetails finds this key in these bytes. It fails for others.
    void detailsGive(ByteView der, Bytes publicKey) { details_[toBytes(der)] = std::move(publicKey); }
    void connect(const std::vector<std::string>& devices);
    void unplug() { connect({}); }
    void openSingleSignOn() { info.singleSignOnEnabled = info.singleSignOnOpen = 1; }

    // The next call of this function answers `result`, the one after it what was asked next; then they succeed again.
    void willAnswer(Call call, int result) { results_[call].push_back(result); }
    // The same for the PIN check, with the count of remaining attempts that it writes.
    void willAnswerPin(int result, int remaining);
    // Runs inside every call of this function, whichever thread makes it; may throw.
    void during(Call call, const std::function<void()>& hook);

    // The calls since the last look, as "signHash(TOKEN-1, <key in hex>, 1234, <hash in hex>, room 256, false)": numbers in
    // decimal, bytes in hexadecimal, a library context only if there is one.
    std::vector<std::string> takeCalls() { return std::exchange(calls_, {}); }

    int monitorPolls() const { return polls_; }
    // False if none came within three seconds.
    bool waitForMonitorPoll();
    bool lastMonitorPollFoundNothing() const { return lastPollFoundNothing_; }

private:
    friend class FakeDeviceCalls;
    FakeDeviceLibrary() = default;

    const std::thread::id testThread_ = std::this_thread::get_id();
    // The monitor reads the devices and the hooks.
    std::mutex mutex_;
    std::atomic<int> polls_ = 0;
    std::atomic<bool> lastPollFoundNothing_ = false;
};

// The bytes that fit, and the length of all.
template <std::size_t Size>
std::int32_t setBytes(unsigned char (&field)[Size], ByteView bytes)
{
    std::ranges::copy(bytes.first(std::min(bytes.size(), Size)), field);
    return static_cast<std::int32_t>(bytes.size());
}
template <std::size_t Room>
void setText(char (&field)[Room], std::string_view text)
{
    text.substr(0, Room).copy(field, Room);
    if (text.size() < Room) field[text.size()] = '\0';
}
void setReference(auto& record, ByteView reference)
{
    record.keyReferenceLength = setBytes(record.keyReference, reference);
}
inline void setPublicKey(QueltaKeyPair& pair, ByteView publicKey)
{
    pair.publicKeyLength = setBytes(pair.publicKey, publicKey);
}

} // namespace quelta::test
