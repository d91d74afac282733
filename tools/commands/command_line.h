// The command line: what may be written, what it means, and the help.
#pragma once

#include <string>
#include <vector>

namespace quelta::tools {

// Runs the command that the arguments (UTF-8, without the program's name) ask for and returns the process's exit code.
int runCommandLine(std::vector<std::string> arguments);

} // namespace quelta::tools
