#include "token/key_unwrap.h"

#include "log/log_writer.h"
#include "token/record_fields.h"

#include <algorithm>
#include <utility>

namespace quelta {

namespace {

bool canUnwrap(const QueltaSymmetricKey& key)
{
    return key.encryptionType == encryptionAes128 || key.encryptionType == encryptionAes256;
}

} // namespace

std::expected<UnwrappedKey, UnwrapFailure> UnwrapWithAnyKek(const Token& token, ByteView wrapped, const PinText& pin,
                                                            const std::function<std::uint32_t(std::size_t)>& sizeCodeOf,
                                                            const char* unwrappedText)
{
    const auto candidates = token.aesKeys();
    for (const auto& candidate : *candidates) {
        if (!canUnwrap(candidate)) continue;
        auto unwrapped = token.decryptAes(candidate, wrapped);
        if (!unwrapped) continue;
        logDebug(unwrappedText, hex(keyIdOf(candidate)));
        const auto value = unwrapped->upTo(importedKeyRoom);
        if (!value) {
            const bool tooLong = *unwrapped && std::cmp_greater(unwrapped->reportedLength(), importedKeyRoom);
            return std::unexpected(tooLong ? UnwrapFailure::keyTooLong : UnwrapFailure::noKeyRecovered);
        }
        const auto stored = importSymmetricKey(token, pin, *value, sizeCodeOf(value->size()));
        if (!stored) return std::unexpected(UnwrapFailure::importRefused);
        UnwrappedKey result{*stored, {}};
        std::ranges::copy(candidate.keyId, result.keyEncryptionKeyId.begin());
        return result;
    }
    return std::unexpected(UnwrapFailure::noKeyFits);
}

std::expected<QueltaSymmetricKey, int> importSymmetricKey(const Token& token, const PinText& pin, ByteView value,
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
