#include "support/fake_device_library.h"

#include "token/key_algorithms.h"
#include "token/record_fields.h"

#include <chrono>
#include <utility>

namespace quelta::test {

namespace {

// The first byte tells a modulus from DER. On the token an EC key is DER.
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

void FakeDeviceLibrary::become(const FakeToken& other)
{
    const std::lock_guard lock(mutex_);
    static_cast<FakeToken&>(*this) = other;
}

void FakeDeviceLibrary::reset()
{
    become({});
    info.serialNumber = "SN-1";
}

void FakeDeviceLibrary::connect(const std::vector<std::string>& devices)
{
    const std::lock_guard lock(mutex_);
    devices_ = devices;
}

void FakeDeviceLibrary::during(Call call, const std::function<void()>& hook)
{
    const std::lock_guard lock(mutex_);
    hooks_[call] = hook;
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
    detailsGive(der, toBytes(publicKeyOf(pair)));
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

void FakeDeviceLibrary::willAnswerPin(int result, int remaining)
{
    willAnswer(Call::validatePassword, result);
    remaining_.resize(results_[Call::validatePassword].size() - 1);
    remaining_.push_back(remaining);
}

bool FakeDeviceLibrary::waitForMonitorPoll()
{
    using namespace std::chrono_literals;
    const int before = monitorPolls();
    for (const auto end = std::chrono::steady_clock::now() + 3s; std::chrono::steady_clock::now() < end;) {
        if (monitorPolls() != before) return true;
        std::this_thread::sleep_for(2ms);
    }
    return false;
}

} // namespace quelta::test
