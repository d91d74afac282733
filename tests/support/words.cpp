#include "support/words.h"

#include "common/hex.h"
#include "log/utils.h"
#include "support/test_bytes.h"

#include <wincrypt.h>

#include <algorithm>
#include <cstdint>
#include <map>

namespace quelta::test {

namespace {

bool stepsBy(ByteView bytes, int step)
{
    return std::ranges::adjacent_find(bytes, [=](int one, int next) { return ((next - one - step) & 0xFF) != 0; }) == bytes.end();
}

std::string hashText(ByteView bytes)
{
    std::uint32_t hash = 2166136261;
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 16777619;
    return "#" + toHex(reversed(littleEndian({hash})));
}

std::string longWords(ByteView bytes)
{
    const std::string size = std::to_string(bytes.size()) + " bytes ";
    const std::string first = toHex(bytes.first(1));
    if (stepsBy(bytes, 0)) return size + "of " + first;
    if (stepsBy(bytes, 1)) return size + "rising from " + first;
    if (stepsBy(bytes, -1)) return size + "falling from " + first;
    return size + hashText(bytes);
}

constexpr std::size_t shownInFull = 16;

bool isText(ByteView characters)
{
    return !characters.empty() &&
           std::ranges::all_of(characters, [](int character) { return character >= ' ' && character < 0x7F; });
}

// Returns the low bytes of a wide text; nothing if the bytes are none.
Bytes narrowedBytes(ByteView value)
{
    Bytes narrow;
    for (std::size_t i = 0; i + 1 < value.size() && value[i + 1] == 0; i += 2) narrow.push_back(value[i]);
    return narrow.size() * 2 == value.size() ? narrow : Bytes();
}

bool isTextWithZero(ByteView value)
{
    return value.size() > 1 && value.back() == 0 && isText(value.first(value.size() - 1));
}

std::string textWithZero(ByteView value)
{
    return "\"" + toText(value.first(value.size() - 1)) + "\\0\"";
}

bool isHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F');
}

std::string shortHex(std::string_view digits)
{
    const auto bytes = digits.size() > 2 * shownInFull ? fromHex(digits) : std::nullopt;
    return bytes ? words(*bytes) : std::string(digits);
}

} // namespace

std::string words(ByteView bytes)
{
    if (!bytes.data()) return "null";
    if (bytes.empty()) return "empty";
    return bytes.size() <= shownInFull ? toHex(bytes) : longWords(bytes);
}

std::string valueWords(ByteView value)
{
    if (value.size() == 4) return "DWORD " + std::to_string(value[0] | value[1] << 8 | value[2] << 16 | unsigned{value[3]} << 24);
    if (isTextWithZero(value)) return textWithZero(value);
    if (const Bytes narrow = narrowedBytes(value); isTextWithZero(narrow)) return "L" + textWithZero(narrow);
    if (value.size() > 4 && isText(value)) return "\"" + toText(value) + "\"";
    return value.empty() ? words(value) : toHex(value);
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
    return quoted(narrow.c_str());
}

std::string flagsText(DWORD flags)
{
    return flags == 0 ? "" : ", flags " + std::to_string(flags);
}

std::string keyWords(const TokenKey& key)
{
    std::string text = toHex(key.keyId) + ": algorithm " + std::to_string(key.algorithm) + ", " + std::to_string(key.bitLength) +
                       " bits, usage " + std::to_string(key.keyUsage) + ", flag " + std::to_string(key.keyPairFlag);
    if (!key.label.empty()) text += ", label \"" + std::string(key.label.view().begin(), key.label.view().end()) + "\"";
    for (const auto& [name, bytes] : {std::pair<const char*, ByteView>{", reference ", key.objectId.view()},
                                      {", public key ", key.publicKey.view()},
                                      {", symmetric key ", key.symmetricKey->view()}}) {
        if (!bytes.empty()) text += name + toHex(bytes);
    }
    return text;
}

// Maps values to names. The constants have signed and unsigned types.
#define QUELTA_NAMES(...) named(#__VA_ARGS__, __VA_ARGS__)
static std::map<DWORD, std::string> named(const std::string& names, auto... values)
{
    std::map<DWORD, std::string> result;
    auto name = Utils::split(names, ", ");
    std::size_t next = 0;
    (result.emplace(static_cast<DWORD>(values), name[next++]), ...);
    return result;
}

std::string errorName(DWORD error)
{
    static const auto names = QUELTA_NAMES(
        ERROR_SUCCESS, ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_PARAMETER, ERROR_CALL_NOT_IMPLEMENTED,
        ERROR_MORE_DATA, ERROR_NO_MORE_ITEMS, NTE_BAD_UID, NTE_BAD_HASH, NTE_BAD_KEY, NTE_BAD_LEN, NTE_BAD_DATA,
        NTE_BAD_SIGNATURE, NTE_BAD_VER, NTE_BAD_ALGID, NTE_BAD_FLAGS, NTE_BAD_TYPE, NTE_BAD_KEY_STATE, NTE_NO_KEY, NTE_NO_MEMORY,
        NTE_EXISTS, NTE_PERM, NTE_NOT_FOUND, NTE_KEYSET_NOT_DEF, NTE_KEYSET_ENTRY_BAD, NTE_PROVIDER_DLL_FAIL, NTE_BAD_KEYSET,
        NTE_BAD_KEYSET_PARAM, NTE_FAIL, NTE_TOKEN_KEYSET_STORAGE_FULL, NTE_SILENT_CONTEXT, NTE_INVALID_HANDLE,
        NTE_INVALID_PARAMETER, NTE_BUFFER_TOO_SMALL, NTE_NOT_SUPPORTED, NTE_NO_MORE_ITEMS, NTE_INTERNAL_ERROR,
        NTE_VALIDATION_FAILED, NTE_DEVICE_NOT_FOUND);
    const auto found = names.find(error);
    return found == names.end() ? std::to_string(error) : found->second;
}

} // namespace quelta::test
