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

// The library's functions, and the device monitor's poll.
#define QUELTA_DEVICE_CALLS                                                                                                      \
    init, initDevice, getConnectedDeviceList, getTokenInfo, validatePassword, getKeyPairList, getCertificateList, getAesKeyList, \
        getCertificateDetails, generateKeyPair, deleteKeyPair, importCertificate, importAesKey, signHash, verifySignatureHash,   \
        decrypt, encrypt, decryptAes, decryptSymetric, initHash, updateHash, finalHash, generateRamdomNumber, monitorPoll
enum class Call { QUELTA_DEVICE_CALLS };
Call callNamed(const std::string& name);

// The output of a call. The fake never writes past a capacity that the caller states. The reported length may lie.
struct Given {
    // Without these the call has a default, see FakeToken.
    std::optional<Bytes> bytes;
    std::optional<int> reportedLength;
    // If the library allocates the buffer, it returns none.
    bool nullBuffer = false;
    // The output is filled even if the call is refused.
    bool evenIfRefused = false;
};

// The content and the answers of a token. When a test begins, one token is connected, with the PIN "1234" and nothing on it.
struct FakeToken {
    // The records stay where they are, so a test may change their fields at any time.
    std::deque<QueltaKeyPair> keyPairs;
    std::deque<QueltaCertificate> certificates;
    std::deque<QueltaSymmetricKey> aesKeys;
    TokenInfo info{};
    std::string pin = "1234";
    int attempts = 10;
    // The PIN of the last check, where the module keeps it.
    const char* checkedPin = nullptr;

    Given signature;      // default: as many bytes as there is room for
    Given digest;         // default: 32 bytes, or what there is room for
    Given plain;          // of decrypt; default: "plain text"
    Given cipher;         // of encrypt; default: 256 bytes
    Given symmetricPlain; // of decryptSymetric; default: the input
    Given unwrapped;      // of decryptAes; default: 16 bytes
    // Change the record after the token has filled in an identifier and, for a key pair, a public key.
    std::function<void(QueltaKeyPair&)> onGenerate;
    std::function<void(QueltaSymmetricKey&)> onImportAesKey;
    // How often the token has made, stored or deleted something.
    int changes = 0;
    // How many hashes were begun and not finished.
    int openHashes = 0;

    // Is told of every call but the device monitor's, and of the answer. takeCalls() tells the form of the texts.
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

// A device library with a token whose content and answers a test sets. Every call succeeds unless the test says otherwise. The
// next call overwrites the lists that a call returned.
//
// The device monitor asks for the connected devices, too. Its calls are counted and not recorded. A call of another thread than
// the test's counts as the monitor's.
class FakeDeviceLibrary : public FakeToken {
public:
    static constexpr const char deviceId[] = "TOKEN-1";

    static FakeDeviceLibrary& instance();

    void reset();
    void become(const FakeToken& other);

    QueltaKeyPair& withKeyPair(std::uint32_t usage, std::uint32_t algorithm);
    QueltaCertificate& withCertificate(ByteView der);
    // Adds a certificate that belongs to the key by reference and label. Its details give the key's public key.
    QueltaCertificate& withCertificateOf(const QueltaKeyPair& pair, ByteView der);
    QueltaSymmetricKey& withAesKey(std::uint32_t encryptionType);
    // getCertificateDetails finds this key in these bytes. It fails for others.
    void detailsGive(ByteView der, Bytes publicKey) { details_[toBytes(der)] = std::move(publicKey); }
    void connect(const std::vector<std::string>& devices);
    void unplug() { connect({}); }
    void openSingleSignOn() { info.singleSignOnEnabled = info.singleSignOnOpen = 1; }

    // The next call of this function answers `result`. Several results form a queue. When the queue is empty, calls succeed
    // again.
    void willAnswer(Call call, int result) { results_[call].push_back(result); }
    // Does the same for the PIN check, which also writes this count of remaining attempts.
    void willAnswerPin(int result, int remaining);
    // `hook` runs inside every call of this function, on the calling thread. It may throw.
    void during(Call call, const std::function<void()>& hook);

    // Returns the calls since the last time, such as "signHash(TOKEN-1, <key in hex>, 1234, <hash in hex>, room 256, false)".
    // Numbers are decimal, bytes hexadecimal. A library context is named only if there is one.
    std::vector<std::string> takeCalls() { return std::exchange(calls_, {}); }

    int monitorPolls() const { return polls_; }
    // Returns false if no poll came within three seconds.
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

// Copies the bytes that fit, and returns the length of all.
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
