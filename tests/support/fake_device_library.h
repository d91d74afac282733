#pragma once

#include "support/test_bytes.h"

#include "base/bytes.h"
#include "token/device_library.h"

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace quelta::test {

enum class Call {
    init,
    initDevice,
    getConnectedDeviceList,
    getTokenInfo,
    validatePassword,
    getKeyPairList,
    getCertificateList,
    getAesKeyList,
    getCertificateDetails,
    generateKeyPair,
    deleteKeyPair,
    importCertificate,
    importAesKey,
    signHash,
    verifySignatureHash,
    decrypt,
    encrypt,
    decryptAes,
    decryptSymetric,
    initHash,
    updateHash,
    finalHash,
    generateRamdomNumber,
};

// What a call gives out. The bytes never go past a capacity that the call states; the reported length may lie.
struct Given {
    // Without bytes, the call's own default.
    std::optional<Bytes> bytes;
    std::optional<int> reportedLength;
    // For what the library allocates: no buffer at all, or one although the call is refused.
    bool nullBuffer = false;
    bool evenIfRefused = false;
};

// A device library whose token holds what a test says and answers what a test says. Every call succeeds unless told otherwise.
// Lists come back in storage that the same thread's next call spoils.
//
// The device monitor asks for the connected devices too: its calls are counted and not recorded. Any thread but the test's own is
// taken for the monitor's; other threads that call entry points are made by callerThread().
class FakeDeviceLibrary final : public DeviceLibrary {
public:
    static constexpr const char deviceId[] = "TOKEN-1";

    static FakeDeviceLibrary& instance();

    // One connected token with the PIN "1234" and nothing on it; no scripts, no hooks, no recorded calls.
    void reset();

    // The token's content. The records stay where they are, so a test may change their fields at any time.
    QueltaKeyPair& withKeyPair(std::uint32_t usage, std::uint32_t algorithm);
    QueltaCertificate& withCertificate(ByteView der);
    // Belongs to the key by its reference and label; its details give the key's public key.
    QueltaCertificate& withCertificateOf(const QueltaKeyPair& pair, ByteView der);
    QueltaSymmetricKey& withAesKey(std::uint32_t encryptionType);
    // What getCertificateDetails finds in these bytes; it fails for others.
    void detailsGive(ByteView der, Bytes publicKey);
    void connect(std::vector<std::string> devices);
    void unplug() { connect({}); }
    void openSingleSignOn();

    std::deque<QueltaKeyPair> keyPairs;
    std::deque<QueltaCertificate> certificates;
    std::deque<QueltaSymmetricKey> aesKeys;
    TokenInfo info;
    std::string pin;
    int attempts = 0;

    // The next call of this function answers `result`, the one after it what was asked next; then they succeed again.
    void willAnswer(Call call, int result);
    // The same for the PIN check, with the count of remaining attempts that it writes.
    void willAnswerPin(int result, int remaining);
    // Runs inside every call of this function, whichever thread makes it; may throw.
    void during(Call call, std::function<void()> hook);

    Given signature;      // default: as many bytes as there is room for
    Given digest;         // default: 32 bytes, or what there is room for
    Given plain;          // of decrypt; default: "plain text"
    Given cipher;         // of encrypt; default: 256 bytes
    Given symmetricPlain; // of decryptSymetric; default: the input
    Given unwrapped;      // of decryptAes; default: 16 bytes
    // What these put into the record that they are handed. Default: an identifier, and for a key pair a public key.
    std::function<void(QueltaKeyPair&)> onGenerate;
    std::function<void(QueltaSymmetricKey&)> onImportAesKey;
    // How often the token has made, stored or deleted something.
    int changes = 0;

    // The calls since the last look, as "signHash(TOKEN-1, <key in hex>, 1234, <hash in hex>, room 256, false)": numbers in
    // decimal, bytes in hexadecimal, a library context only if there is one.
    std::vector<std::string> takeCalls();
    // The same without the calls that only fetch something: those whose names begin with "get".
    std::vector<std::string> takeDeeds();

    // Told of every call that is not the device monitor's, worded as above, and of what it answered.
    std::function<void(const std::string& call, const std::string& answer)> onCall;

    // Runs inside every call of the device monitor; may throw.
    void duringMonitorPoll(std::function<void()> hook);
    int monitorPolls() const;
    // False if none came within three seconds.
    bool waitForMonitorPoll() const;
    bool lastMonitorPollFoundNothing() const;

    int init(int first, int second) override;
    int initDevice(const char* device, bool flag, void* libContext) override;
    std::vector<std::string> getConnectedDeviceList(bool flag, void* libContext) override;
    TokenInfo getTokenInfo(const char* device, void* libContext) override;
    int validatePassword(const char* device, const char* typed, int mode, int* remaining, void* libContext) override;
    std::vector<QueltaKeyPair>& getKeyPairList(const char* device, void* libContext) override;
    std::vector<QueltaCertificate>& getCertificateList(const char* device, void* libContext) override;
    std::vector<QueltaSymmetricKey>& getAesKeyList(const char* device, void* libContext) override;
    int getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void* libContext) override;
    int generateKeyPair(const char* device, const char* pinText, QueltaKeyPair* inOut, void* libContext) override;
    int deleteKeyPair(const char* device, const unsigned char* keyId, const char* pinText, bool hardware,
                      void* libContext) override;
    int importCertificate(const char* device, const char* pinText, QueltaCertificate* inOut, void* libContext) override;
    int importAesKey(const char* device, const char* pinText, QueltaSymmetricKey* inOut, void* libContext) override;
    int signHash(const char* device, const unsigned char* keyId, const char* pinText, const unsigned char* hash, int hashLength,
                 unsigned char* out, int* outLength, bool flag, void* libContext) override;
    int verifySignatureHash(unsigned int algorithm, const char* device, const unsigned char* hash, int hashLength,
                            const unsigned char* publicKey, int publicKeyLength, const unsigned char* signatureBytes,
                            int signatureLength, void* libContext) override;
    int decrypt(const char* device, const unsigned char* keyId, const char* pinText, const unsigned char* data, int length,
                unsigned char** out, int* outLength, bool hardware, void* libContext) override;
    int encrypt(EncryptionType type, PaddingMode padding, const unsigned char* data, int length, unsigned char* out,
                int* outLength, const unsigned char* publicKey, int publicKeyLength, void* libContext) override;
    int decryptAes(const char* device, const unsigned char* keyReference, int keyReferenceLength, const unsigned char* data,
                   int length, unsigned char** out, int* outLength, bool flag, const unsigned char* iv, int ivLength,
                   void* libContext) override;
    int decryptSymetric(const char* device, const unsigned char* data, int length, unsigned char* out, int* outLength,
                        const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength,
                        void* libContext) override;
    int initHash(const char* device, int algorithm, void** hash, void* libContext) override;
    int updateHash(void* hash, const unsigned char* data, int length, void* libContext) override;
    int finalHash(void* hash, unsigned char* out, int* length, void* libContext) override;
    int generateRamdomNumber(const char* device, int length, unsigned char* out, bool flag, void* libContext) override;

private:
    // What one thread was handed, and its next call spoils.
    struct HandedOut {
        std::vector<QueltaKeyPair> keyPairs;
        std::vector<QueltaCertificate> certificates;
        std::vector<QueltaSymmetricKey> aesKeys;
    };

    FakeDeviceLibrary() = default;

    HandedOut& handedOutToThread();
    void begin(Call call, std::string text);
    std::optional<int> scripted(Call call);
    int finish(Call call) { return scripted(call).value_or(0); }
    void tell(const std::string& answer);
    // The result of the call under way, and what it gives with it.
    int answer(int result, const std::string& given = "");
    // Counts what has changed the token, once nothing in here can fail any more.
    int changing(int result)
    {
        if (result == 0) ++changes;
        return result;
    }
    std::vector<std::string> pollByMonitor();

    mutable std::mutex mutex_;
    std::vector<std::string> devices_;
    std::vector<std::string> calls_;
    std::string underWay_;
    std::map<std::thread::id, HandedOut> handedOut_;
    std::map<Call, std::deque<int>> results_;
    std::deque<int> remaining_;
    std::map<Call, std::function<void()>> hooks_;
    std::function<void()> monitorHook_;
    std::map<Bytes, Bytes> details_;
    int hashes_ = 0;
    int polls_ = 0;
    bool lastPollFoundNothing_ = false;
};

// A thread of the application's, beside the test's own.
std::jthread callerThread(std::function<void()> body);
// The thread that this is called on belongs to the test.
void markAsCallerThread();
bool calledByMonitor();

template <std::size_t Room>
void setText(char (&field)[Room], std::string_view text)
{
    text.substr(0, Room).copy(field, Room);
    if (text.size() < Room) field[text.size()] = '\0';
}
void setReference(QueltaKeyPair& pair, ByteView reference);
void setReference(QueltaCertificate& record, ByteView reference);
void setReference(QueltaSymmetricKey& key, ByteView reference);
void setPublicKey(QueltaKeyPair& pair, ByteView publicKey);

} // namespace quelta::test
