// What the user reads: as characters on a console, broken between words; as UTF-8 in a file or a pipe.
#pragma once

#include "base/bytes.h"

#include <string_view>

namespace quelta::tools {

// To be called first: from then on standard output is the tool's own, and what anybody else in the process prints (the provider
// prints its log's troubles) goes to standard error.
void keepStandardOutput();

// A line to standard output; to standard error once content goes to standard output. Throws a Failure where nobody takes it.
void printLine(std::string_view line);
// The same; false, with a last error, where nobody takes it.
bool tryPrintLine(std::string_view line);
void complain(std::string_view line);

// From here on standard output has a file's content.
void useOutputForContent();
// Content, as it is. False, with a last error, where nobody takes it.
bool writeToOutput(ByteView bytes);

// Wine, and not Windows.
bool isWine();

} // namespace quelta::tools
