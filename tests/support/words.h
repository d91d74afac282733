// Puts values into words for transcripts: texts as texts, long bytes by their pattern or a hash, numbers by their published
// names.
#pragma once

#include "base/bytes.h"
#include "token/token_key.h"

#include <windows.h>

namespace quelta::test {

// Returns, for example, "0102AB", "32 bytes rising from 01", "16 bytes of 11", "294 bytes #1A2B3C4D", "empty" or "null".
std::string words(ByteView bytes);
// Does the same for a value that may be a number or a text: "DWORD 9", "\"a text\\0\"", "L\"a text\\0\"". Other bytes are spelled
// out, so that a scenario can replace them by a word; see Recorder::call.
std::string valueWords(ByteView value);
// Returns the text with long upper-case hexadecimal written as words() does.
std::string withShortHex(std::string_view text);
// Returns the text between quotation marks, or "null".
std::string quoted(const char* text);
std::string quoted(const wchar_t* text);
// Returns an empty text for no flags; else, for example, ", flags 5".
std::string flagsText(DWORD flags);

// Returns the content of the record behind a key handle, which no call tells in full.
std::string keyWords(const TokenKey& key);

// Returns the published name of an error; without one, the number.
std::string errorName(DWORD error);

} // namespace quelta::test
