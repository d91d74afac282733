#include "support/words.h"

#include "log/utils.h"

#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <span>

namespace quelta::test {

namespace {

struct Name {
    DWORD value;
    const char* text;
};

#define QUELTA_NAME(constant)                                                                                                    \
    {                                                                                                                            \
        static_cast<DWORD>(constant), #constant                                                                                  \
    }

constexpr Name errors[] = {
    QUELTA_NAME(ERROR_SUCCESS),
    QUELTA_NAME(ERROR_ACCESS_DENIED),
    QUELTA_NAME(ERROR_NOT_ENOUGH_MEMORY),
    QUELTA_NAME(ERROR_INVALID_PARAMETER),
    QUELTA_NAME(ERROR_CALL_NOT_IMPLEMENTED),
    QUELTA_NAME(ERROR_MORE_DATA),
    QUELTA_NAME(ERROR_NO_MORE_ITEMS),
    QUELTA_NAME(NTE_BAD_UID),
    QUELTA_NAME(NTE_BAD_HASH),
    QUELTA_NAME(NTE_BAD_KEY),
    QUELTA_NAME(NTE_BAD_LEN),
    QUELTA_NAME(NTE_BAD_DATA),
    QUELTA_NAME(NTE_BAD_SIGNATURE),
    QUELTA_NAME(NTE_BAD_VER),
    QUELTA_NAME(NTE_BAD_ALGID),
    QUELTA_NAME(NTE_BAD_FLAGS),
    QUELTA_NAME(NTE_BAD_TYPE),
    QUELTA_NAME(NTE_BAD_KEY_STATE),
    QUELTA_NAME(NTE_NO_KEY),
    QUELTA_NAME(NTE_NO_MEMORY),
    QUELTA_NAME(NTE_EXISTS),
    QUELTA_NAME(NTE_PERM),
    QUELTA_NAME(NTE_NOT_FOUND),
    QUELTA_NAME(NTE_KEYSET_NOT_DEF),
    QUELTA_NAME(NTE_KEYSET_ENTRY_BAD),
    QUELTA_NAME(NTE_PROVIDER_DLL_FAIL),
    QUELTA_NAME(NTE_BAD_KEYSET),
    QUELTA_NAME(NTE_BAD_KEYSET_PARAM),
    QUELTA_NAME(NTE_FAIL),
    QUELTA_NAME(NTE_TOKEN_KEYSET_STORAGE_FULL),
    QUELTA_NAME(NTE_SILENT_CONTEXT),
    QUELTA_NAME(NTE_INVALID_HANDLE),
    QUELTA_NAME(NTE_INVALID_PARAMETER),
    QUELTA_NAME(NTE_BUFFER_TOO_SMALL),
    QUELTA_NAME(NTE_NOT_SUPPORTED),
    QUELTA_NAME(NTE_NO_MORE_ITEMS),
    QUELTA_NAME(NTE_INTERNAL_ERROR),
    QUELTA_NAME(NTE_VALIDATION_FAILED),
    {0x80090035, "NTE_DEVICE_NOT_FOUND"},
};

constexpr Name algorithms[] = {QUELTA_NAME(CALG_MD5),      QUELTA_NAME(CALG_SHA1),     QUELTA_NAME(CALG_SHA_256),
                               QUELTA_NAME(CALG_SHA_384),  QUELTA_NAME(CALG_SHA_512),  QUELTA_NAME(CALG_HMAC),
                               QUELTA_NAME(CALG_RSA_SIGN), QUELTA_NAME(CALG_RSA_KEYX), QUELTA_NAME(CALG_3DES),
                               QUELTA_NAME(CALG_AES_128),  QUELTA_NAME(CALG_AES_192),  QUELTA_NAME(CALG_AES_256),
                               QUELTA_NAME(AT_SIGNATURE),  QUELTA_NAME(AT_KEYEXCHANGE)};

constexpr Name keySpecs[] = {QUELTA_NAME(AT_SIGNATURE), QUELTA_NAME(AT_KEYEXCHANGE)};

constexpr Name blobTypes[] = {
    QUELTA_NAME(SIMPLEBLOB),       QUELTA_NAME(PUBLICKEYBLOB),   QUELTA_NAME(PRIVATEKEYBLOB),
    QUELTA_NAME(PLAINTEXTKEYBLOB), QUELTA_NAME(PUBLICKEYBLOBEX), {11, "SYMMETRICWRAPKEYBLOB"},
};

constexpr Name providerParameters[] = {QUELTA_NAME(PP_CLIENT_HWND),
                                       QUELTA_NAME(PP_ENUMALGS),
                                       QUELTA_NAME(PP_ENUMCONTAINERS),
                                       QUELTA_NAME(PP_IMPTYPE),
                                       QUELTA_NAME(PP_NAME),
                                       QUELTA_NAME(PP_VERSION),
                                       QUELTA_NAME(PP_CONTAINER),
                                       QUELTA_NAME(PP_CERTCHAIN),
                                       QUELTA_NAME(PP_PROVTYPE),
                                       QUELTA_NAME(PP_KEYSTORAGE),
                                       QUELTA_NAME(PP_ENUMALGS_EX),
                                       QUELTA_NAME(PP_KEYSET_TYPE),
                                       QUELTA_NAME(PP_ADMIN_PIN),
                                       QUELTA_NAME(PP_KEYEXCHANGE_PIN),
                                       QUELTA_NAME(PP_SIGNATURE_PIN),
                                       QUELTA_NAME(PP_KEYSPEC),
                                       QUELTA_NAME(PP_USE_HARDWARE_RNG),
                                       QUELTA_NAME(PP_ENUMEX_SIGNING_PROT),
                                       QUELTA_NAME(PP_UNIQUE_CONTAINER)};

constexpr Name keyParameters[] = {QUELTA_NAME(KP_IV),          QUELTA_NAME(KP_PADDING),    QUELTA_NAME(KP_MODE),
                                  QUELTA_NAME(KP_PERMISSIONS), QUELTA_NAME(KP_ALGID),      QUELTA_NAME(KP_BLOCKLEN),
                                  QUELTA_NAME(KP_KEYLEN),      QUELTA_NAME(KP_CERTIFICATE)};

constexpr Name hashParameters[] = {QUELTA_NAME(HP_ALGID), QUELTA_NAME(HP_HASHVAL), QUELTA_NAME(HP_HASHSIZE),
                                   QUELTA_NAME(HP_HMAC_INFO)};

#undef QUELTA_NAME

std::string nameIn(std::span<const Name> names, DWORD value)
{
    const auto found = std::ranges::find(names, value, &Name::value);
    return found == names.end() ? std::to_string(value) : found->text;
}

std::string hexOfByte(unsigned char byte)
{
    return Utils::toHex(&byte, 1);
}

bool stepsBy(ByteView bytes, unsigned char step)
{
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        if (static_cast<unsigned char>(bytes[i] - bytes[i - 1]) != step) return false;
    }
    return true;
}

std::string hashText(ByteView bytes)
{
    std::uint32_t hash = 2166136261;
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 16777619;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "#%08X", hash);
    return text.data();
}

std::string longWords(ByteView bytes)
{
    const std::string size = std::to_string(bytes.size()) + " bytes ";
    const std::string first = hexOfByte(bytes.front());
    if (stepsBy(bytes, 0)) return size + "of " + first;
    if (stepsBy(bytes, 1)) return size + "rising from " + first;
    if (stepsBy(bytes, 0xFF)) return size + "falling from " + first;
    return size + hashText(bytes);
}

constexpr std::size_t shownInFull = 16;

bool isText(ByteView characters)
{
    return !characters.empty() &&
           std::ranges::all_of(characters, [](unsigned char character) { return character >= ' ' && character < 0x7F; });
}

std::string asText(ByteView characters)
{
    return {characters.begin(), characters.end()};
}

// The low bytes of what may be a wide text; nothing if it is none.
Bytes narrowedBytes(ByteView value)
{
    Bytes narrow;
    for (std::size_t i = 0; i + 1 < value.size(); i += 2) {
        if (value[i + 1] != 0) return {};
        narrow.push_back(value[i]);
    }
    return value.size() % 2 == 0 ? narrow : Bytes();
}

bool isTextWithZero(ByteView value)
{
    return value.size() > 1 && value.back() == 0 && isText(value.first(value.size() - 1));
}

std::string textWithZero(ByteView value)
{
    return "\"" + asText(value.first(value.size() - 1)) + "\\0\"";
}

int digitOf(char digit)
{
    return digit <= '9' ? digit - '0' : digit - 'A' + 10;
}

bool isHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F');
}

std::string shortHex(std::string_view digits)
{
    if (digits.size() <= 2 * shownInFull || digits.size() % 2 != 0) return std::string(digits);
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(digitOf(digits[i]) * 16 + digitOf(digits[i + 1])));
    return words(bytes);
}

} // namespace

std::string words(ByteView bytes)
{
    if (!bytes.data()) return "null";
    if (bytes.empty()) return "empty";
    return bytes.size() <= shownInFull ? Utils::toHex(bytes.data(), static_cast<int>(bytes.size())) : longWords(bytes);
}

std::string valueWords(ByteView value)
{
    if (value.size() == 4) return "DWORD " + std::to_string(value[0] | value[1] << 8 | value[2] << 16 | unsigned{value[3]} << 24);
    if (isTextWithZero(value)) return textWithZero(value);
    if (const Bytes narrow = narrowedBytes(value); isTextWithZero(narrow)) return "L" + textWithZero(narrow);
    if (value.size() > 4 && isText(value)) return "\"" + asText(value) + "\"";
    return value.empty() ? words(value) : Utils::toHex(value.data(), static_cast<int>(value.size()));
}

std::string withShortHex(std::string_view text)
{
    std::string result;
    for (auto at = text.begin(); at != text.end();) {
        const auto first = std::find_if(at, text.end(), isHexDigit);
        result.append(at, first);
        at = std::find_if_not(first, text.end(), isHexDigit);
        result += shortHex({first, at});
    }
    return result;
}

std::string quoted(const char* text)
{
    return text ? "\"" + std::string(text) + "\"" : "null";
}

std::string quoted(const wchar_t* text)
{
    if (!text) return "null";
    std::string narrow;
    for (const wchar_t unit : std::wstring_view(text)) narrow += unit < 0x7F ? static_cast<char>(unit) : '?';
    return "\"" + narrow + "\"";
}

std::string flagsText(DWORD flags)
{
    return flags == 0 ? "" : ", flags " + std::to_string(flags);
}

std::string errorName(DWORD code)
{
    return nameIn(errors, code);
}
std::string algorithmName(DWORD id)
{
    return nameIn(algorithms, id);
}
std::string keySpecName(DWORD keySpec)
{
    return nameIn(keySpecs, keySpec);
}
std::string blobTypeName(DWORD type)
{
    return nameIn(blobTypes, type);
}
std::string providerParameterName(DWORD parameter)
{
    return nameIn(providerParameters, parameter);
}
std::string keyParameterName(DWORD parameter)
{
    return nameIn(keyParameters, parameter);
}
std::string hashParameterName(DWORD parameter)
{
    return nameIn(hashParameters, parameter);
}

} // namespace quelta::test
