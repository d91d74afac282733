#include "device/exports.h"
#include "device/guard.h"
#include "device/records.h"
#include "store/pin.h"
#include "store/token_keys.h"

#include <algorithm>

using namespace quelta;
using namespace quelta::softtoken;

namespace {

void requireAdministration(const TokenState& state, const char* pin)
{
    const int result = mayUse(state, Use::administration, pin);
    if (result != 0) throw TokenError(static_cast<Result>(result), "the PIN was refused");
}

template <std::size_t size>
ByteView fieldBytes(const unsigned char (&field)[size], std::int32_t length)
{
    if (length < 0 || static_cast<std::size_t>(length) > size)
        throw TokenError(Result::badArgument, "a length does not fit its field");
    return {field, static_cast<std::size_t>(length)};
}

// By the identifier; failing that by the reference, failing that by the label.
const StoredKeyPair& pairOf(const TokenState& state, const QueltaCertificate& request)
{
    if (const StoredKeyPair* pair = findKeyPair(state, request.keyId)) return *pair;
    const ByteView reference = fieldBytes(request.keyReference, request.keyReferenceLength);
    const std::string label = fieldText(request.label);
    for (const StoredKeyPair& pair : state.keyPairs)
        if (!reference.empty() && std::ranges::equal(pair.reference, reference)) return pair;
    for (const StoredKeyPair& pair : state.keyPairs)
        if (!label.empty() && pair.label == label) return pair;
    throw TokenError(Result::noSuchKey, "no key pair for the certificate");
}

} // namespace

int quelta_generateKeyPair(const char* deviceId, const char* pin, QueltaKeyPair* inOut, void*)
{
    return guarded([&] {
        if (inOut == nullptr) return Result::badArgument;
        requireAdministration(*pluggedToken(deviceId), pin);
        const std::uint32_t algorithm = inOut->algorithm == 0 ? algorithmRsa2048 : inOut->algorithm;
        // Before the lock: a large RSA key takes its time.
        const PrivateKey key = generateKey(algorithm);
        changePluggedToken(deviceId, [&](TokenState& state) {
            requireAdministration(state, pin);
            *inOut = keyPairRecord(addKeyPair(state, key, inOut->usage, fieldText(inOut->label)));
        });
        return Result::ok;
    });
}

int quelta_deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool, void*)
{
    return guarded([&] {
        if (keyId == nullptr) return Result::badArgument;
        changePluggedToken(deviceId, [&](TokenState& state) {
            requireAdministration(state, pin);
            const KeyId id = keyIdFrom({keyId, keyIdSize});
            if (findKeyPair(state, id) == nullptr) throw TokenError(Result::noSuchKey, "no such key pair");
            removeKeyPair(state, id);
        });
        return Result::ok;
    });
}

int quelta_importCertificate(const char* deviceId, const char* pin, QueltaCertificate* inOut, void*)
{
    return guarded([&] {
        if (inOut == nullptr) return Result::badArgument;
        changePluggedToken(deviceId, [&](TokenState& state) {
            requireAdministration(state, pin);
            const ByteView der = fieldBytes(inOut->certificate, inOut->certificateLength);
            *inOut = certificateRecord(addCertificate(state, pairOf(state, *inOut), der));
        });
        return Result::ok;
    });
}

int quelta_importAesKey(const char* deviceId, const char* pin, QueltaSymmetricKey* inOut, void*)
{
    return guarded([&] {
        if (inOut == nullptr) return Result::badArgument;
        changePluggedToken(deviceId, [&](TokenState& state) {
            requireAdministration(state, pin);
            const ByteView value = fieldBytes(inOut->keyValue, inOut->keyValueLength);
            const StoredAesKey& key = addAesKey(state, value, inOut->encryptionType, inOut->usage, fieldText(inOut->label));
            QueltaSymmetricKey filled = *inOut;
            const QueltaSymmetricKey shown = aesKeyRecord(key);
            std::ranges::copy(shown.keyId, filled.keyId);
            std::ranges::copy(shown.keyReference, filled.keyReference);
            std::ranges::copy(shown.label, filled.label);
            filled.keyReferenceLength = shown.keyReferenceLength;
            filled.usage = shown.usage;
            filled.flag = shown.flag;
            *inOut = filled;
        });
        return Result::ok;
    });
}
