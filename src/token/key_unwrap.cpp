#include "token/key_unwrap.h"

#include <algorithm>

namespace quelta {

namespace {

bool canUnwrap(const QueltaSymmetricKey& key)
{
    return key.encryptionType == encryptionAes128 || key.encryptionType == encryptionAes256;
}

} // namespace

std::optional<UnwrappedKey> UnwrapWithAnyKek(const Token& token, ByteView wrapped)
{
    const auto candidates = token.aesKeys();
    for (const auto& candidate : *candidates) {
        if (!canUnwrap(candidate)) continue;
        if (auto key = token.decryptAes(candidate, wrapped)) {
            return UnwrappedKey{*std::move(key), std::to_array(candidate.keyId)};
        }
    }
    return std::nullopt;
}

DeviceResult<QueltaSymmetricKey> importSymmetricKey(const Token& token, const PinText& pin, ByteView value,
                                                    std::uint32_t encryptionType)
{
    Wiped<QueltaSymmetricKey> request;
    std::ranges::copy(value, request->keyValue);
    request->keyValueLength = static_cast<std::int32_t>(value.size());
    request->encryptionType = encryptionType;
    if (const int result = token.importAesKey(pin, *request)) return std::unexpected(result);
    wipe(request->keyValue, sizeof request->keyValue);
    return *request;
}

} // namespace quelta
