// How a transcript puts values into words. All of it is the reader's view: texts as texts, long bytes by what they are or by a
// hash, numbers by their published names.
#pragma once

#include "base/bytes.h"
#include "token/token_key.h"

#include <windows.h>

namespace quelta::test {

// "0102AB", "32 bytes rising from 01", "16 bytes of 11", "294 bytes #1A2B3C4D"; an empty span and null are told apart.
std::string words(ByteView bytes);
// What a caller hands in or is handed, which may be a number or a text, too: "DWORD 9", "\"a text\\0\"", "L\"a text\\0\"". All
// other bytes are spelled out, so that a scenario can have its own word for them; see Recorder::call.
std::string valueWords(ByteView value);
// Long upper-case hexadecimal within a text as words() has it.
std::string withShortHex(std::string_view text);
// "null" or the text between quotation marks.
std::string quoted(const char* text);
std::string quoted(const wchar_t* text);
// Nothing for none, else ", flags 5".
std::string flagsText(DWORD flags);

// What the record of a key handle holds, which no call tells in full.
std::string keyWords(const TokenKey& key);

// How answers depend on something, as sizes: "room 1, room 3 -> FALSE" is a line, "room 4 -> TRUE" the next.
using Answers = std::vector<std::pair<std::string, std::string>>;
std::vector<std::string> answerLines(const Answers& answers);

// The published name; an error without one is written as its number.
std::string errorName(DWORD error);

} // namespace quelta::test
