// Texts inside the tool are UTF-8; Windows' wide and ANSI forms are made at the edges.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quelta {

std::string utf8(std::wstring_view text);
std::wstring wide(std::string_view text);

// In the process's ANSI code page, which is how a provider takes names and PINs. Throws a Failure when a character has no place
// in it.
std::string ansi(std::string_view text);

std::filesystem::path pathOf(std::string_view text);
std::string nameOf(const std::filesystem::path& path);

// A line to standard output or standard error: as characters to a console, as UTF-8 to a file or a pipe.
void printLine(std::string_view line);
void complain(std::string_view line);

// Whether standard error is a console, on which a line may be written over.
bool errorsGoToConsole();
// Writes without a line feed, for a line that is written over later.
void writeToErrors(std::string_view text);

} // namespace quelta
