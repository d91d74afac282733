#include "formats/base64.h"

#include "base/token_error.h"

#include <windows.h>

#include <wincrypt.h>

namespace quelta::softtoken {

Bytes fromBase64(std::string_view text)
{
    const auto size = static_cast<DWORD>(text.size());
    DWORD count = 0;
    if (!CryptStringToBinaryA(text.data(), size, CRYPT_STRING_BASE64, nullptr, &count, nullptr, nullptr))
        throw TokenError(Result::badData, "a PEM block is not written in base64");
    Bytes bytes(count);
    CryptStringToBinaryA(text.data(), size, CRYPT_STRING_BASE64, bytes.data(), &count, nullptr, nullptr);
    bytes.resize(count);
    return bytes;
}

std::string toBase64(ByteView bytes)
{
    DWORD size = 0;
    constexpr DWORD form = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    CryptBinaryToStringA(bytes.data(), static_cast<DWORD>(bytes.size()), form, nullptr, &size);
    std::string base64(size, '\0');
    CryptBinaryToStringA(bytes.data(), static_cast<DWORD>(bytes.size()), form, base64.data(), &size);
    base64.resize(size);
    std::erase_if(base64, [](char character) { return character == '\r' || character == '\n'; });
    return base64;
}

} // namespace quelta::softtoken
