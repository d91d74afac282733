#include "common/pem.h"

#include <windows.h>

#include <wincrypt.h>

namespace quelta {

std::optional<Bytes> fromBase64(std::string_view text)
{
    // A length of 0 would stand for a zero-terminated text.
    if (text.empty()) return Bytes();
    const auto size = static_cast<DWORD>(text.size());
    DWORD count = 0;
    if (!CryptStringToBinaryA(text.data(), size, CRYPT_STRING_BASE64, nullptr, &count, nullptr, nullptr)) return std::nullopt;
    Bytes bytes(count);
    CryptStringToBinaryA(text.data(), size, CRYPT_STRING_BASE64, bytes.data(), &count, nullptr, nullptr);
    return bytes;
}

std::string toBase64(ByteView bytes)
{
    constexpr DWORD form = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    const auto size = static_cast<DWORD>(bytes.size());
    DWORD count = 0;
    CryptBinaryToStringA(bytes.data(), size, form, nullptr, &count);
    std::string text(count, '\0');
    CryptBinaryToStringA(bytes.data(), size, form, text.data(), &count);
    std::erase_if(text, [](char character) { return character == '\0' || character == '\r' || character == '\n'; });
    return text;
}

} // namespace quelta
