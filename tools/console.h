// What the user reads: as characters on a console, as UTF-8 in a file or a pipe.
#pragma once

#include <string_view>

namespace quelta::tools {

// A line to standard output or standard error.
void printLine(std::string_view line);
void complain(std::string_view line);

// Whether standard error is a console, on which a line may be written over.
bool errorsGoToConsole();
// Writes without a line feed, for a line that is written over later.
void writeToErrors(std::string_view text);

} // namespace quelta::tools
