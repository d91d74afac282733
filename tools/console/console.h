// What the user reads: as characters on a console, as UTF-8 in a file or a pipe.
#pragma once

#include "base/bytes.h"

#include <string_view>

namespace quelta::tools {

// To be called first: from then on standard output is the tool's own, and what anybody else in the process prints (the provider
// prints its log's troubles) goes to standard error.
void keepStandardOutput();

// A line to standard output or standard error.
void printLine(std::string_view line);
void complain(std::string_view line);

// Closes the window that the system has opened for this program alone, as it does at a logon.
void leaveOwnWindow();

// Wine, and not Windows.
bool isWine();

// Bytes to standard output as they are. False, with a last error, where nobody takes them.
bool writeToOutput(ByteView bytes);

// Whether standard error is a console, on which a line may be written over.
bool errorsGoToConsole();
// Writes without a line feed, for a line that is written over later.
void writeToErrors(std::string_view text);

} // namespace quelta::tools
