#include "support/fake_device_library.h"

#include "base/hex.h"
#include "log/utils.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <cstdlib>
#include <cstring>
#include <tuple>

namespace quelta {

namespace test {

namespace {

#define QUELTA_SPELL_OUT(...) #__VA_ARGS__
#define QUELTA_SPELL(...) QUELTA_SPELL_OUT(__VA_ARGS__)
const std::vector<std::string>& callNames()
{
    static const auto names = Utils::split(QUELTA_SPELL(QUELTA_DEVICE_CALLS), ", ");
    return names;
}

// Returns no copy, since no block of this library may begin with a PIN.
std::string_view asText(const char* text)
{
    if (!text) return "null";
    return *text ? text : "\"\"";
}
std::string_view asText(const std::string& text)
{
    return asText(text.c_str());
}
std::string asText(bool value)
{
    return value ? "true" : "false";
}
template <std::integral T>
std::string asText(T number)
{
    return std::to_string(number);
}
// A null pointer, an empty span and bytes are three different things to the library. Only the size of a long input is told.
std::string asText(ByteView bytes)
{
    constexpr std::size_t longestSpelledOut = 0x10000;
    if (!bytes.data()) return "null";
    if (bytes.size() > longestSpelledOut) return std::to_string(bytes.size()) + " bytes";
    return bytes.empty() ? "empty" : toHex(bytes);
}

// Returns "name(first, second)". Names a library context only if there is one.
template <class... Arguments>
std::string callText(Call call, const void* context, const Arguments&... arguments)
{
    std::string all;
    ((all += all.empty() ? "" : ", ", all += asText(arguments)), ...);
    if (context) all += ", with a context";
    return callNames().at(static_cast<std::size_t>(call)) + "(" + all + ")";
}

std::string listText(const auto& records, auto textOf)
{
    std::string all;
    for (const auto& record : records) all += (all.empty() ? "" : ", ") + textOf(record);
    return all.empty() ? "nothing" : all;
}

ByteView bytesOf(const unsigned char* data, int length)
{
    return {data, data && length > 0 ? static_cast<std::size_t>(length) : 0};
}

std::size_t roomOf(const int* length)
{
    return static_cast<std::size_t>(std::max(*length, 0));
}

std::string roomText(const int* length)
{
    return "room " + std::to_string(*length);
}

ByteView idOf(const unsigned char* keyId)
{
    return {keyId, keyIdSize};
}

// Returns the first byte of the identifier. The tests' records differ in it.
std::string shortId(const auto& record)
{
    return toHex(ByteView(record.keyId).first(1)) + "..";
}

// The lists that were handed out. The next call spoils them.
using Lists = std::tuple<std::vector<QueltaKeyPair>, std::vector<QueltaCertificate>, std::vector<QueltaSymmetricKey>>;

void spoil(auto& records)
{
    for (auto& record : records) std::memset(static_cast<void*>(&record), 0xEE, sizeof record);
}

} // namespace

Call callNamed(const std::string& name)
{
    return static_cast<Call>(std::ranges::find(callNames(), name) - callNames().begin());
}

// Each function records its name and arguments, runs its hook, and answers what the test says. A success also fills the outputs.
class FakeDeviceCalls final : public DeviceLibrary {
public:
    int init(int first, int second) override { return answer(begin(Call::init, nullptr, first, second)); }
    int initDevice(const char* device, bool flag, void* context) override
    {
        return answer(begin(Call::initDevice, context, device, flag));
    }
    std::vector<std::string> getConnectedDeviceList(bool flag, void* context) override
    {
        if (std::this_thread::get_id() != token_.testThread_) return pollByMonitor();
        begin(Call::getConnectedDeviceList, context, flag);
        say(listText(token_.devices_, [](const std::string& device) { return device; }));
        return token_.devices_;
    }
    TokenInfo getTokenInfo(const char* device, void* context) override
    {
        begin(Call::getTokenInfo, context, device);
        const TokenInfo& info = token_.info;
        const bool signedOn = info.singleSignOnEnabled == 1 && info.singleSignOnOpen == 1;
        say(info.serialNumber.empty() ? "no serial number" : signedOn ? "signed on" : "not signed on");
        return info;
    }
    int validatePassword(const char* device, const char* pin, int mode, int* remaining, void* context) override
    {
        const Call call = begin(Call::validatePassword, context, device, pin, mode, *remaining);
        token_.checkedPin = pin;
        constexpr int wrongPin = 5;
        const auto told = scripted(call);
        const int result = told.value_or(token_.pin == pin ? 0 : wrongPin);
        auto& scriptedRemaining = token_.remaining_;
        if (told ? scriptedRemaining.empty() : result == 0) return tell(result);
        *remaining = told ? scriptedRemaining.front() : --token_.attempts;
        if (told) scriptedRemaining.pop_front();
        return tell(result, std::to_string(*remaining) + " left");
    }

    std::vector<QueltaKeyPair>& getKeyPairList(const char* device, void* context) override
    {
        begin(Call::getKeyPairList, context, device);
        return handOut(token_.keyPairs, [](const auto& pair) {
            return shortId(pair) + " usage " + std::to_string(pair.usage) + " algorithm " + std::to_string(pair.algorithm);
        });
    }
    std::vector<QueltaCertificate>& getCertificateList(const char* device, void* context) override
    {
        begin(Call::getCertificateList, context, device);
        return handOut(token_.certificates, [](const auto& record) { return asText(certificateOf(record)); });
    }
    std::vector<QueltaSymmetricKey>& getAesKeyList(const char* device, void* context) override
    {
        begin(Call::getAesKeyList, context, device);
        return handOut(token_.aesKeys,
                       [](const auto& key) { return shortId(key) + " type " + std::to_string(key.encryptionType); });
    }
    int getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void* context) override
    {
        const Call call = begin(Call::getCertificateDetails, context, bytesOf(der, length));
        const auto found = token_.details_.find(toBytes(bytesOf(der, length)));
        const bool known = found != token_.details_.end();
        constexpr int notUnderstood = 13;
        if (known) details.publicKey = found->second;
        return tell(scripted(call).value_or(known ? 0 : notUnderstood), asText(details.publicKey));
    }

    int generateKeyPair(const char* device, const char* pin, QueltaKeyPair* inOut, void* context) override
    {
        const Call call = begin(Call::generateKeyPair, context, device, pin, inOut->algorithm, inOut->usage, keyName(*inOut),
                                std::string(labelOf(*inOut)));
        return changing(answer(call, [&] {
            std::ranges::fill(inOut->keyId, static_cast<unsigned char>(0x77));
            setPublicKey(*inOut, counting(bitsOfAlgorithm(inOut->algorithm) / 8, 0xC1));
            if (token_.onGenerate) token_.onGenerate(*inOut);
            return shortId(*inOut);
        }));
    }
    int deleteKeyPair(const char* device, const unsigned char* keyId, const char* pin, bool hardware, void* context) override
    {
        return changing(answer(begin(Call::deleteKeyPair, context, device, idOf(keyId), pin, hardware)));
    }
    int importCertificate(const char* device, const char* pin, QueltaCertificate* inOut, void* context) override
    {
        const ByteView der = bytesOf(inOut->certificate, inOut->certificateLength);
        return changing(answer(begin(Call::importCertificate, context, device, pin, idOf(inOut->keyId), der,
                                     keyReferenceOf(*inOut), std::string(labelOf(*inOut)))));
    }
    int importAesKey(const char* device, const char* pin, QueltaSymmetricKey* inOut, void* context) override
    {
        const ByteView value = bytesOf(inOut->keyValue, inOut->keyValueLength);
        return changing(answer(begin(Call::importAesKey, context, device, pin, value, inOut->encryptionType), [&] {
            std::ranges::fill(inOut->keyId, static_cast<unsigned char>(0x88));
            if (token_.onImportAesKey) token_.onImportAesKey(*inOut);
            return shortId(*inOut);
        }));
    }

    int signHash(const char* device, const unsigned char* keyId, const char* pin, const unsigned char* hash, int hashLength,
                 unsigned char* out, int* length, bool flag, void* context) override
    {
        const Call call =
            begin(Call::signHash, context, device, idOf(keyId), pin, bytesOf(hash, hashLength), roomText(length), flag);
        return answerInto(call, token_.signature, counting(roomOf(length)), out, length, roomOf(length));
    }
    int verifySignatureHash(unsigned int algorithm, const char* device, const unsigned char* hash, int hashLength,
                            const unsigned char* key, int keyLength, const unsigned char* signature, int signatureLength,
                            void* context) override
    {
        return answer(begin(Call::verifySignatureHash, context, algorithm, device, bytesOf(hash, hashLength),
                            bytesOf(key, keyLength), bytesOf(signature, signatureLength)));
    }
    int decrypt(const char* device, const unsigned char* keyId, const char* pin, const unsigned char* data, int dataLength,
                unsigned char** out, int* length, bool hardware, void* context) override
    {
        const Call call = begin(Call::decrypt, context, device, idOf(keyId), pin, bytesOf(data, dataLength), hardware);
        return answerNew(call, token_.plain, toBytes("plain text"), out, length);
    }
    int encrypt(EncryptionType type, PaddingMode padding, const unsigned char* data, int dataLength, unsigned char* out,
                int* length, const unsigned char* key, int keyLength, void* context) override
    {
        const Call call = begin(Call::encrypt, context, static_cast<int>(type), static_cast<int>(padding),
                                bytesOf(data, dataLength), bytesOf(key, keyLength));
        constexpr std::size_t promisedRoom = 1024;
        return answerInto(call, token_.cipher, counting(256), out, length, promisedRoom);
    }
    int decryptAes(const char* device, const unsigned char* reference, int referenceLength, const unsigned char* data,
                   int dataLength, unsigned char** out, int* length, bool flag, const unsigned char* iv, int ivLength,
                   void* context) override
    {
        const Call call = begin(Call::decryptAes, context, device, bytesOf(reference, referenceLength), bytesOf(data, dataLength),
                                flag, bytesOf(iv, ivLength));
        return answerNew(call, token_.unwrapped, counting(16), out, length);
    }
    int decryptSymetric(const char* device, const unsigned char* data, int dataLength, unsigned char* out, int* length,
                        const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength, void* context) override
    {
        const ByteView input = bytesOf(data, dataLength);
        const Call call = begin(Call::decryptSymetric, context, device, input, bytesOf(iv, ivLength), bytesOf(key, keyLength));
        return answerInto(call, token_.symmetricPlain, input, out, length, input.size());
    }

    int initHash(const char* device, int algorithm, void** hash, void* context) override
    {
        return answer(begin(Call::initHash, context, device, algorithm), [&] {
            const int number = ++token_.hashes_;
            ++token_.openHashes;
            *hash = reinterpret_cast<void*>(static_cast<std::uintptr_t>(number));
            return "hash " + std::to_string(number);
        });
    }
    int updateHash(void* hash, const unsigned char* data, int length, void* context) override
    {
        return answer(begin(Call::updateHash, context, reinterpret_cast<std::uintptr_t>(hash), bytesOf(data, length)));
    }
    int finalHash(void* hash, unsigned char* out, int* length, void* context) override
    {
        const Call call = begin(Call::finalHash, context, reinterpret_cast<std::uintptr_t>(hash), roomText(length));
        const Bytes otherwise = counting(std::min<std::size_t>(roomOf(length), 32), 0xD0);
        const int result = answerInto(call, token_.digest, otherwise, out, length, roomOf(length));
        if (result == 0) --token_.openHashes;
        return result;
    }
    int generateRamdomNumber(const char* device, int length, unsigned char* out, bool flag, void* context) override
    {
        return answer(begin(Call::generateRamdomNumber, context, device, length, flag), [&] {
            std::ranges::copy(counting(static_cast<std::size_t>(length)), out);
            return std::string();
        });
    }

private:
    template <class... Arguments>
    Call begin(Call call, const void* context, const Arguments&... arguments)
    {
        std::apply([](auto&... before) { (spoil(before), ...); }, lists_);
        token_.calls_.push_back(callText(call, context, arguments...));
        if (token_.onCall) underWay_ = token_.calls_.back();
        const auto hook = token_.hooks_.find(call);
        try {
            if (hook != token_.hooks_.end()) hook->second();
        } catch (...) {
            say("throws");
            throw;
        }
        return call;
    }
    std::optional<int> scripted(Call call)
    {
        auto& queue = token_.results_[call];
        if (queue.empty()) return std::nullopt;
        const int result = queue.front();
        queue.pop_front();
        return result;
    }
    void say(const std::string& answer)
    {
        if (token_.onCall) token_.onCall(underWay_, answer);
    }
    int tell(int result, const std::string& given = "")
    {
        say(given.empty() ? std::to_string(result) : std::to_string(result) + ", " + given);
        return result;
    }
    std::vector<std::string> pollByMonitor()
    {
        std::unique_lock lock(token_.mutex_);
        ++token_.polls_;
        const auto found = token_.devices_;
        token_.lastPollFoundNothing_ = found.empty();
        const auto hook = token_.hooks_.find(Call::monitorPoll);
        const auto action = hook == token_.hooks_.end() ? [] {} : hook->second;
        lock.unlock();
        action();
        return found;
    }
    int answer(Call call)
    {
        return answer(call, [] { return std::string(); });
    }
    template <class Give>
    int answer(Call call, Give give, bool evenIfRefused = false)
    {
        const int result = scripted(call).value_or(0);
        return result == 0 || evenIfRefused ? tell(result, give()) : tell(result);
    }
    // Counts a change of the token. Call it when nothing can fail any more.
    int changing(int result)
    {
        if (result == 0) ++token_.changes;
        return result;
    }

    // Answers into a buffer of the caller's that has `room` bytes.
    int answerInto(Call call, const Given& given, ByteView otherwise, unsigned char* out, int* length, std::size_t room)
    {
        const auto give = [&] {
            const ByteView bytes = given.bytes ? ByteView(*given.bytes) : otherwise;
            std::ranges::copy(bytes.first(std::min(bytes.size(), room)), out);
            return givenText(given, bytes, length);
        };
        return answer(call, give, given.evenIfRefused);
    }
    // Answers with a buffer from the C runtime's heap, which the caller frees.
    int answerNew(Call call, const Given& given, const Bytes& otherwise, unsigned char** out, int* length)
    {
        const auto give = [&] {
            const ByteView bytes = given.bytes ? *given.bytes : otherwise;
            std::string text = givenText(given, bytes, length);
            if (given.nullBuffer) return "no buffer, length " + std::to_string(*length);
            constexpr std::size_t spare = 4096;
            *out = static_cast<unsigned char*>(std::calloc(bytes.size() + spare, 1));
            if (!*out) throw std::bad_alloc();
            std::ranges::copy(bytes, *out);
            return text;
        };
        return answer(call, give, given.evenIfRefused);
    }
    static std::string givenText(const Given& given, ByteView bytes, int* length)
    {
        const auto size = static_cast<int>(bytes.size());
        *length = given.reportedLength.value_or(size);
        return *length == size ? asText(bytes) : asText(bytes) + ", length " + std::to_string(*length);
    }

    template <class Record>
    std::vector<Record>& handOut(const std::deque<Record>& content, auto textOf)
    {
        say(listText(content, textOf));
        auto& storage = std::get<std::vector<Record>>(lists_);
        storage.assign(content.begin(), content.end());
        return storage;
    }

    FakeDeviceLibrary& token_ = FakeDeviceLibrary::instance();
    Lists lists_;
    std::string underWay_;
};

} // namespace test

DeviceLibrary& deviceLibrary()
{
    static test::FakeDeviceCalls calls;
    return calls;
}

} // namespace quelta
