#include "device/guard.h"
#include "device/records.h"
#include "store/pin.h"
#include "store/token_keys.h"
#include "token/device_functions.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

template <std::size_t size>
ByteView fieldBytes(const unsigned char (&field)[size], std::int32_t length)
{
    if (length < 0 || static_cast<std::size_t>(length) > size)
        throw TokenError(Result::badArgument, "a length does not fit its field");
    return {field, static_cast<std::size_t>(length)};
}

// Finds a key by its identifier, else by its reference, else by its label.
const StoredKeyPair& pairOf(const StoredToken& state, const QueltaCertificate& request)
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

} // namespace quelta::softtoken

using namespace quelta;
using namespace quelta::softtoken;

int quelta_generateKeyPair(const char* deviceId, const char* pin, QueltaKeyPair* inOut, void*)
{
    return guarded([&] {
        if (inOut == nullptr) return static_cast<int>(Result::badArgument);
        const auto allowed = [&](const StoredToken& state) { return mayUse(state, Use::administration, pin); };
        if (const int refused = withToken(deviceId, allowed); refused != 0) return refused;
        // Generate before the token is locked. A large RSA key takes seconds.
        const PrivateKey key = generateKey(inOut->algorithm == 0 ? algorithmRsa2048 : inOut->algorithm);
        QueltaKeyPair made{};
        const int result = changeAsAdministrator(deviceId, pin, [&](StoredToken& state) {
            made = keyPairRecord(addKeyPair(state, key, inOut->usage, fieldText(inOut->label)));
            return Result::ok;
        });
        if (result == 0) *inOut = made;
        return result;
    });
}

int quelta_deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool hardware, void*)
{
    if (keyId == nullptr || !hardware) return static_cast<int>(Result::badArgument);
    return changeAsAdministrator(deviceId, pin, [&](StoredToken& state) {
        const KeyId id = keyIdFrom({keyId, keyIdSize});
        if (findKeyPair(state, id) == nullptr) return Result::noSuchKey;
        removeKeyPair(state, id);
        return Result::ok;
    });
}

int quelta_importCertificate(const char* deviceId, const char* pin, QueltaCertificate* inOut, void*)
{
    if (inOut == nullptr) return static_cast<int>(Result::badArgument);
    QueltaCertificate stored{};
    const int result = changeAsAdministrator(deviceId, pin, [&](StoredToken& state) {
        const ByteView der = fieldBytes(inOut->certificate, inOut->certificateLength);
        stored = certificateRecord(addCertificate(state, pairOf(state, *inOut), der));
        return Result::ok;
    });
    if (result == 0) *inOut = stored;
    return result;
}

int quelta_importAesKey(const char* deviceId, const char* pin, QueltaSymmetricKey* inOut, void*)
{
    if (inOut == nullptr) return static_cast<int>(Result::badArgument);
    QueltaSymmetricKey stored = *inOut;
    const int result = changeAsAdministrator(deviceId, pin, [&](StoredToken& state) {
        const ByteView value = fieldBytes(inOut->keyValue, inOut->keyValueLength);
        const StoredAesKey& key = addAesKey(state, value, inOut->encryptionType, inOut->usage, fieldText(inOut->label));
        const QueltaSymmetricKey shown = aesKeyRecord(key);
        std::ranges::copy(shown.keyId, stored.keyId);
        std::ranges::copy(shown.keyReference, stored.keyReference);
        std::ranges::copy(shown.label, stored.label);
        stored.keyReferenceLength = shown.keyReferenceLength;
        stored.usage = shown.usage;
        stored.flag = shown.flag;
        return Result::ok;
    });
    if (result == 0) *inOut = stored;
    return result;
}
