// How a transcript puts values into words. All of it is the reader's view: texts as texts, long bytes by what they are or by a
// hash, numbers by their published names.
#pragma once

#include "base/bytes.h"
#include "token/token_key.h"

#include <windows.h>

namespace quelta::test {

// "0102AB", "32 bytes rising from 01", "16 bytes of 11", "294 bytes #1A2B3C4D"; an empty span and null are told apart.
std::string words(ByteView bytes);
// A value of a caller, which may be a number or a text, too: "DWORD 9", "\"a text\\0\"", "L\"a text\\0\"". All
// other bytes are spelled out, so that a scenario can have its own word for them; see Recorder::call.
std::string valueWords(ByteView value);
// Long upper-case hexadecimal within a text as words() has it.
std::string withShortHex(std::string_view text);
// "null" or the text between quotation marks.
std::string quoted(const char* text);
std::string quoted(const wchar_t* text);
// An empty text for no flags, else ", flags 5".
std::string flagsText(DWORD flags);

// The content of the record behind a key handle. No call tells all of it.
std::string keyWords(const TokenKey& key);

// The published name; an error without one is written as its number.
std::string errorName(DWORD error);

} // namespace quelta::test
