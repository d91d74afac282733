#include "support/call_text.h"
#include "support/fake_device_library.h"
#include "support/freed_memory.h"

#include "log/utils.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace quelta::test {

namespace {

template <class Record>
void spoil(std::vector<Record>& records)
{
    for (Record& record : records) std::memset(static_cast<void*>(&record), 0xEE, sizeof record);
}

template <class Record>
std::vector<Record>& handOut(std::vector<Record>& storage, const std::deque<Record>& content)
{
    storage.assign(content.begin(), content.end());
    return storage;
}

int sizeOf(ByteView bytes)
{
    return static_cast<int>(bytes.size());
}

std::string givenText(ByteView bytes, int reportedLength)
{
    const std::string text = asText(bytes);
    return reportedLength == sizeOf(bytes) ? text : text + ", length " + std::to_string(reportedLength);
}

// Into a buffer of the caller's, of which `room` bytes are there. What was given, in words.
std::string giveInto(const Given& given, const Bytes& otherwise, unsigned char* out, int* length, std::size_t room)
{
    const Bytes& bytes = given.bytes ? *given.bytes : otherwise;
    std::copy_n(bytes.begin(), std::min(bytes.size(), room), out);
    *length = given.reportedLength.value_or(sizeOf(bytes));
    return givenText(bytes, *length);
}

// Into a buffer from the C runtime's heap, which the caller frees. A reported length that is no lie is there to be read.
std::string giveNew(const Given& given, const Bytes& otherwise, unsigned char** out, int* length)
{
    const Bytes& bytes = given.bytes ? *given.bytes : otherwise;
    *length = given.reportedLength.value_or(sizeOf(bytes));
    if (given.nullBuffer) return "no buffer, length " + std::to_string(*length);
    constexpr std::size_t spare = 4096;
    *out = static_cast<unsigned char*>(std::calloc(bytes.size() + spare + sizeof deviceBufferMark, 1));
    std::ranges::copy(bytes, *out);
    std::ranges::copy(deviceBufferMark, *out + bytes.size() + spare);
    return givenText(bytes, *length);
}

std::string listText(const std::string& items)
{
    return items.empty() ? "nothing" : items;
}

// By its first byte: a token's content is made so that this tells records apart.
std::string idText(const unsigned char* keyId)
{
    return Utils::toHex(keyId, 1) + "..";
}

std::size_t roomOf(const int* length)
{
    return static_cast<std::size_t>(std::max(*length, 0));
}

ByteView idOf(const unsigned char* keyId)
{
    return {keyId, keyIdSize};
}

} // namespace

FakeDeviceLibrary::HandedOut& FakeDeviceLibrary::handedOutToThread()
{
    const std::lock_guard lock(mutex_);
    return handedOut_[std::this_thread::get_id()];
}

void FakeDeviceLibrary::begin(Call call, std::string text)
{
    HandedOut& before = handedOutToThread();
    spoil(before.keyPairs);
    spoil(before.certificates);
    spoil(before.aesKeys);
    std::function<void()> hook;
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(text));
        if (onCall) underWay_ = calls_.back();
        if (const auto found = hooks_.find(call); found != hooks_.end()) hook = found->second;
    }
    try {
        if (hook) hook();
    } catch (...) {
        tell("throws");
        throw;
    }
}

void FakeDeviceLibrary::tell(const std::string& answer)
{
    if (onCall) onCall(underWay_, answer);
}

int FakeDeviceLibrary::answer(int result, const std::string& given)
{
    tell(given.empty() ? std::to_string(result) : std::to_string(result) + ", " + given);
    return result;
}

int FakeDeviceLibrary::init(int first, int second)
{
    begin(Call::init, callText("init", nullptr, first, second));
    return answer(finish(Call::init));
}

int FakeDeviceLibrary::initDevice(const char* device, bool flag, void* libContext)
{
    begin(Call::initDevice, callText("initDevice", libContext, device, flag));
    return answer(finish(Call::initDevice));
}

std::vector<std::string> FakeDeviceLibrary::getConnectedDeviceList(bool flag, void* libContext)
{
    if (calledByMonitor()) return pollByMonitor();
    begin(Call::getConnectedDeviceList, callText("getConnectedDeviceList", libContext, flag));
    const std::lock_guard lock(mutex_);
    std::string names;
    for (const auto& device : devices_) names += (names.empty() ? "" : ", ") + device;
    tell(listText(names));
    return devices_;
}

TokenInfo FakeDeviceLibrary::getTokenInfo(const char* device, void* libContext)
{
    begin(Call::getTokenInfo, callText("getTokenInfo", libContext, device));
    const bool signedOn = info.singleSignOnEnabled == 1 && info.singleSignOnOpen == 1;
    tell(info.serialNumber.empty() ? "no serial number" : signedOn ? "signed on" : "not signed on");
    return info;
}

int FakeDeviceLibrary::validatePassword(const char* device, const char* typed, int mode, int* remaining, void* libContext)
{
    begin(Call::validatePassword, callText("validatePassword", libContext, device, typed, mode, *remaining));
    if (const auto result = scripted(Call::validatePassword)) {
        if (remaining_.empty()) return answer(*result);
        *remaining = remaining_.front();
        remaining_.pop_front();
        return answer(*result, std::to_string(*remaining) + " left");
    }
    if (pin == typed) return answer(0);
    constexpr int wrongPin = 5;
    *remaining = --attempts;
    return answer(wrongPin, std::to_string(*remaining) + " left");
}

std::vector<QueltaKeyPair>& FakeDeviceLibrary::getKeyPairList(const char* device, void* libContext)
{
    begin(Call::getKeyPairList, callText("getKeyPairList", libContext, device));
    std::string all;
    for (const auto& pair : keyPairs) {
        all += (all.empty() ? "" : ", ") + idText(pair.keyId) + " usage " + std::to_string(pair.usage) + " algorithm " +
               std::to_string(pair.algorithm);
    }
    tell(listText(all));
    return handOut(handedOutToThread().keyPairs, keyPairs);
}

std::vector<QueltaCertificate>& FakeDeviceLibrary::getCertificateList(const char* device, void* libContext)
{
    begin(Call::getCertificateList, callText("getCertificateList", libContext, device));
    std::string all;
    for (const auto& record : certificates) {
        all += (all.empty() ? "" : ", ") + asText(certificateOf(record));
    }
    tell(listText(all));
    return handOut(handedOutToThread().certificates, certificates);
}

std::vector<QueltaSymmetricKey>& FakeDeviceLibrary::getAesKeyList(const char* device, void* libContext)
{
    begin(Call::getAesKeyList, callText("getAesKeyList", libContext, device));
    std::string all;
    for (const auto& key : aesKeys) {
        all += (all.empty() ? "" : ", ") + idText(key.keyId) + " type " + std::to_string(key.encryptionType);
    }
    tell(listText(all));
    return handOut(handedOutToThread().aesKeys, aesKeys);
}

int FakeDeviceLibrary::getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void* libContext)
{
    const ByteView bytes = bytesOf(der, length);
    begin(Call::getCertificateDetails, callText("getCertificateDetails", libContext, bytes));
    const auto found = details_.find({bytes.begin(), bytes.end()});
    constexpr int notUnderstood = 13;
    if (found != details_.end()) details.publicKey = found->second;
    return answer(scripted(Call::getCertificateDetails).value_or(found == details_.end() ? notUnderstood : 0),
                  asText(details.publicKey));
}

int FakeDeviceLibrary::generateKeyPair(const char* device, const char* pinText, QueltaKeyPair* inOut, void* libContext)
{
    begin(Call::generateKeyPair, callText("generateKeyPair", libContext, device, pinText, inOut->algorithm, inOut->usage,
                                          keyName(*inOut).c_str(), std::string(labelOf(*inOut)).c_str()));
    if (const int result = finish(Call::generateKeyPair)) return answer(result);
    std::ranges::fill(inOut->keyId, static_cast<unsigned char>(0x77));
    setPublicKey(*inOut, counting(bitsOfAlgorithm(inOut->algorithm) / 8, 0xC1));
    if (onGenerate) onGenerate(*inOut);
    return changing(answer(0, idText(inOut->keyId)));
}

int FakeDeviceLibrary::deleteKeyPair(const char* device, const unsigned char* keyId, const char* pinText, bool hardware,
                                     void* libContext)
{
    begin(Call::deleteKeyPair, callText("deleteKeyPair", libContext, device, idOf(keyId), pinText, hardware));
    return changing(answer(finish(Call::deleteKeyPair)));
}

int FakeDeviceLibrary::importCertificate(const char* device, const char* pinText, QueltaCertificate* inOut, void* libContext)
{
    begin(Call::importCertificate, callText("importCertificate", libContext, device, pinText, idOf(inOut->keyId),
                                            bytesOf(inOut->certificate, inOut->certificateLength), keyReferenceOf(*inOut),
                                            std::string(labelOf(*inOut)).c_str()));
    return changing(answer(finish(Call::importCertificate)));
}

int FakeDeviceLibrary::importAesKey(const char* device, const char* pinText, QueltaSymmetricKey* inOut, void* libContext)
{
    begin(Call::importAesKey, callText("importAesKey", libContext, device, pinText,
                                       bytesOf(inOut->keyValue, inOut->keyValueLength), inOut->encryptionType));
    if (const int result = finish(Call::importAesKey)) return answer(result);
    std::ranges::fill(inOut->keyId, static_cast<unsigned char>(0x88));
    if (onImportAesKey) onImportAesKey(*inOut);
    return changing(answer(0, idText(inOut->keyId)));
}

int FakeDeviceLibrary::signHash(const char* device, const unsigned char* keyId, const char* pinText, const unsigned char* hash,
                                int hashLength, unsigned char* out, int* outLength, bool flag, void* libContext)
{
    begin(Call::signHash,
          callText("signHash", libContext, device, idOf(keyId), pinText, bytesOf(hash, hashLength), Room{outLength}, flag));
    const int result = finish(Call::signHash);
    if (result != 0 && !signature.evenIfRefused) return answer(result);
    const std::size_t room = roomOf(outLength);
    return answer(result, giveInto(signature, counting(room), out, outLength, room));
}

int FakeDeviceLibrary::verifySignatureHash(unsigned int algorithm, const char* device, const unsigned char* hash, int hashLength,
                                           const unsigned char* publicKey, int publicKeyLength,
                                           const unsigned char* signatureBytes, int signatureLength, void* libContext)
{
    begin(Call::verifySignatureHash, callText("verifySignatureHash", libContext, algorithm, device, bytesOf(hash, hashLength),
                                              bytesOf(publicKey, publicKeyLength), bytesOf(signatureBytes, signatureLength)));
    return answer(finish(Call::verifySignatureHash));
}

int FakeDeviceLibrary::decrypt(const char* device, const unsigned char* keyId, const char* pinText, const unsigned char* data,
                               int length, unsigned char** out, int* outLength, bool hardware, void* libContext)
{
    begin(Call::decrypt, callText("decrypt", libContext, device, idOf(keyId), pinText, bytesOf(data, length), hardware));
    const int result = finish(Call::decrypt);
    if (result != 0 && !plain.evenIfRefused) return answer(result);
    constexpr std::string_view text = "plain text";
    return answer(result, giveNew(plain, Bytes(text.begin(), text.end()), out, outLength));
}

int FakeDeviceLibrary::encrypt(EncryptionType type, PaddingMode padding, const unsigned char* data, int length,
                               unsigned char* out, int* outLength, const unsigned char* publicKey, int publicKeyLength,
                               void* libContext)
{
    begin(Call::encrypt, callText("encrypt", libContext, static_cast<int>(type), static_cast<int>(padding), bytesOf(data, length),
                                  bytesOf(publicKey, publicKeyLength)));
    if (const int result = finish(Call::encrypt)) return answer(result);
    constexpr std::size_t promisedRoom = 1024;
    return answer(0, giveInto(cipher, counting(256), out, outLength, promisedRoom));
}

int FakeDeviceLibrary::decryptAes(const char* device, const unsigned char* keyReference, int keyReferenceLength,
                                  const unsigned char* data, int length, unsigned char** out, int* outLength, bool flag,
                                  const unsigned char* iv, int ivLength, void* libContext)
{
    begin(Call::decryptAes, callText("decryptAes", libContext, device, bytesOf(keyReference, keyReferenceLength),
                                     bytesOf(data, length), flag, bytesOf(iv, ivLength)));
    const int result = finish(Call::decryptAes);
    if (result != 0 && !unwrapped.evenIfRefused) return answer(result);
    return answer(result, giveNew(unwrapped, counting(16), out, outLength));
}

int FakeDeviceLibrary::decryptSymetric(const char* device, const unsigned char* data, int length, unsigned char* out,
                                       int* outLength, const unsigned char* iv, int ivLength, const unsigned char* key,
                                       int keyLength, void* libContext)
{
    const ByteView input = bytesOf(data, length);
    begin(Call::decryptSymetric,
          callText("decryptSymetric", libContext, device, input, bytesOf(iv, ivLength), bytesOf(key, keyLength)));
    if (const int result = finish(Call::decryptSymetric)) return answer(result);
    return answer(0, giveInto(symmetricPlain, Bytes(input.begin(), input.end()), out, outLength, input.size()));
}

int FakeDeviceLibrary::initHash(const char* device, int algorithm, void** hash, void* libContext)
{
    begin(Call::initHash, callText("initHash", libContext, device, algorithm));
    if (const int result = finish(Call::initHash)) return answer(result);
    const std::lock_guard lock(mutex_);
    *hash = reinterpret_cast<void*>(static_cast<std::uintptr_t>(++hashes_));
    return answer(0, "hash " + std::to_string(hashes_));
}

int FakeDeviceLibrary::updateHash(void* hash, const unsigned char* data, int length, void* libContext)
{
    begin(Call::updateHash, callText("updateHash", libContext, reinterpret_cast<std::uintptr_t>(hash), bytesOf(data, length)));
    return answer(finish(Call::updateHash));
}

int FakeDeviceLibrary::finalHash(void* hash, unsigned char* out, int* length, void* libContext)
{
    begin(Call::finalHash, callText("finalHash", libContext, reinterpret_cast<std::uintptr_t>(hash), Room{length}));
    if (const int result = finish(Call::finalHash)) return answer(result);
    const std::size_t room = roomOf(length);
    return answer(0, giveInto(digest, counting(std::min<std::size_t>(room, 32), 0xD0), out, length, room));
}

int FakeDeviceLibrary::generateRamdomNumber(const char* device, int length, unsigned char* out, bool flag, void* libContext)
{
    begin(Call::generateRamdomNumber, callText("generateRamdomNumber", libContext, device, length, flag));
    if (const int result = finish(Call::generateRamdomNumber)) return answer(result);
    std::ranges::copy(counting(static_cast<std::size_t>(length)), out);
    return answer(0);
}

} // namespace quelta::test
