// Prints lines for the user: as characters on a console, broken between words; as UTF-8 to a file or a pipe.
#pragma once

#include "base/bytes.h"

#include <string_view>

namespace quelta::tools {

// Must be called first. Afterwards standard output belongs to the tool, and output of others in the process goes to standard
// error. The provider prints trouble with its log.
void keepStandardOutput();

// Prints a line to standard output, or to standard error once content goes to standard output. Throws a Failure if that fails.
void printLine(std::string_view line);
// The same, but returns false with a last error on failure.
bool tryPrintLine(std::string_view line);
void complain(std::string_view line);

// From here on standard output is for a file's content.
void useOutputForContent();
// Writes content unchanged. Returns false with a last error on failure.
bool writeToOutput(ByteView bytes);

// Returns whether this is Wine.
bool isWine();

} // namespace quelta::tools
