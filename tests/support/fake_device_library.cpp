#include "support/fake_device_library.h"

#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace quelta {

DeviceLibrary& deviceLibrary()
{
    return test::FakeDeviceLibrary::instance();
}

namespace test {

namespace {

thread_local bool belongsToTest = false;

template <std::size_t Size>
std::int32_t setBytes(unsigned char (&field)[Size], ByteView bytes)
{
    std::ranges::copy(bytes.first(std::min(bytes.size(), Size)), field);
    return static_cast<std::int32_t>(bytes.size());
}

// A modulus is never taken for DER; an EC key is DER on the token.
Bytes publicKeyFor(std::uint32_t algorithm, unsigned char number)
{
    Bytes key = counting(isEllipticCurve(algorithm) ? 91 : bitsOfAlgorithm(algorithm) / 8, number);
    if (!key.empty()) key.front() = isEllipticCurve(algorithm) ? 0x30 : 0xC1;
    return key;
}

} // namespace

FakeDeviceLibrary& FakeDeviceLibrary::instance()
{
    static FakeDeviceLibrary library;
    return library;
}

void FakeDeviceLibrary::reset()
{
    const std::lock_guard lock(mutex_);
    devices_ = {deviceId};
    calls_.clear();
    handedOut_.clear();
    results_.clear();
    remaining_.clear();
    hooks_.clear();
    monitorHook_ = nullptr;
    details_.clear();
    hashes_ = 0;
    keyPairs.clear();
    certificates.clear();
    aesKeys.clear();
    info = {};
    info.serialNumber = "SN-1";
    pin = "1234";
    attempts = 10;
    for (Given* given : {&signature, &digest, &plain, &cipher, &symmetricPlain, &unwrapped}) *given = {};
    onGenerate = nullptr;
    onImportAesKey = nullptr;
    onCall = nullptr;
    changes = 0;
}

QueltaKeyPair& FakeDeviceLibrary::withKeyPair(std::uint32_t usage, std::uint32_t algorithm)
{
    QueltaKeyPair& pair = keyPairs.emplace_back();
    const auto number = static_cast<unsigned char>(keyPairs.size());
    std::ranges::fill(pair.keyId, number);
    setPublicKey(pair, publicKeyFor(algorithm, number));
    setReference(pair, Bytes{0xA0, number});
    pair.usage = usage;
    pair.algorithm = algorithm;
    return pair;
}

QueltaCertificate& FakeDeviceLibrary::withCertificate(ByteView der)
{
    QueltaCertificate& record = certificates.emplace_back();
    record.certificateLength = setBytes(record.certificate, der);
    setReference(record, Bytes{0xB0, static_cast<unsigned char>(certificates.size())});
    return record;
}

QueltaCertificate& FakeDeviceLibrary::withCertificateOf(const QueltaKeyPair& pair, ByteView der)
{
    QueltaCertificate& record = withCertificate(der);
    setReference(record, keyReferenceOf(pair));
    setText(record.label, labelOf(pair));
    const ByteView publicKey = publicKeyOf(pair);
    detailsGive(der, {publicKey.begin(), publicKey.end()});
    return record;
}

QueltaSymmetricKey& FakeDeviceLibrary::withAesKey(std::uint32_t encryptionType)
{
    QueltaSymmetricKey& key = aesKeys.emplace_back();
    const auto number = static_cast<unsigned char>(aesKeys.size());
    std::ranges::fill(key.keyId, static_cast<unsigned char>(0xE0 + number));
    setReference(key, Bytes{0xC0, number});
    key.encryptionType = encryptionType;
    return key;
}

void FakeDeviceLibrary::detailsGive(ByteView der, Bytes publicKey)
{
    details_[{der.begin(), der.end()}] = std::move(publicKey);
}

void FakeDeviceLibrary::connect(std::vector<std::string> devices)
{
    const std::lock_guard lock(mutex_);
    devices_ = std::move(devices);
}

void FakeDeviceLibrary::openSingleSignOn()
{
    info.singleSignOnEnabled = 1;
    info.singleSignOnOpen = 1;
}

void FakeDeviceLibrary::willAnswer(Call call, int result)
{
    const std::lock_guard lock(mutex_);
    results_[call].push_back(result);
}

void FakeDeviceLibrary::willAnswerPin(int result, int remaining)
{
    willAnswer(Call::validatePassword, result);
    const std::lock_guard lock(mutex_);
    remaining_.resize(results_[Call::validatePassword].size() - 1);
    remaining_.push_back(remaining);
}

void FakeDeviceLibrary::during(Call call, std::function<void()> hook)
{
    const std::lock_guard lock(mutex_);
    hooks_[call] = std::move(hook);
}

void FakeDeviceLibrary::duringMonitorPoll(std::function<void()> hook)
{
    const std::lock_guard lock(mutex_);
    monitorHook_ = std::move(hook);
}

std::vector<std::string> FakeDeviceLibrary::takeCalls()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
}

std::vector<std::string> FakeDeviceLibrary::takeDeeds()
{
    auto calls = takeCalls();
    std::erase_if(calls, [](const std::string& call) { return call.starts_with("get"); });
    return calls;
}

int FakeDeviceLibrary::monitorPolls() const
{
    const std::lock_guard lock(mutex_);
    return polls_;
}

bool FakeDeviceLibrary::waitForMonitorPoll() const
{
    using namespace std::chrono_literals;
    const int before = monitorPolls();
    for (const auto end = std::chrono::steady_clock::now() + 3s; std::chrono::steady_clock::now() < end;) {
        if (monitorPolls() != before) return true;
        std::this_thread::sleep_for(2ms);
    }
    return false;
}

bool FakeDeviceLibrary::lastMonitorPollFoundNothing() const
{
    const std::lock_guard lock(mutex_);
    return lastPollFoundNothing_;
}

std::optional<int> FakeDeviceLibrary::scripted(Call call)
{
    const std::lock_guard lock(mutex_);
    auto& queue = results_[call];
    if (queue.empty()) return std::nullopt;
    const int result = queue.front();
    queue.pop_front();
    return result;
}

std::vector<std::string> FakeDeviceLibrary::pollByMonitor()
{
    std::vector<std::string> found;
    std::function<void()> hook;
    {
        const std::lock_guard lock(mutex_);
        ++polls_;
        found = devices_;
        lastPollFoundNothing_ = found.empty();
        hook = monitorHook_;
    }
    if (hook) hook();
    return found;
}

bool calledByMonitor()
{
    return !belongsToTest;
}

void markAsCallerThread()
{
    belongsToTest = true;
}

std::jthread callerThread(std::function<void()> body)
{
    return std::jthread([body = std::move(body)] {
        markAsCallerThread();
        body();
    });
}

void setReference(QueltaKeyPair& pair, ByteView reference)
{
    pair.keyReferenceLength = setBytes(pair.keyReference, reference);
}

void setReference(QueltaCertificate& record, ByteView reference)
{
    record.keyReferenceLength = setBytes(record.keyReference, reference);
}

void setReference(QueltaSymmetricKey& key, ByteView reference)
{
    key.keyReferenceLength = setBytes(key.keyReference, reference);
}

void setPublicKey(QueltaKeyPair& pair, ByteView publicKey)
{
    pair.publicKeyLength = setBytes(pair.publicKey, publicKey);
}

} // namespace test

} // namespace quelta
