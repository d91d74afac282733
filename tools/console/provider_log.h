// What the provider's log says of this process: its error lines carry the token's own result, which no error code has.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quelta::tools {

// The folder with a folder for each program that loads the provider.
std::filesystem::path logFolder();
// Today's file of this program, whether or not it is there.
std::filesystem::path ownLogFile();

// To be called first: error lines from then on are this run's.
void rememberLogEnd();
// The lines of a log at the level of errors. `from` is a position in the file.
std::vector<std::string> errorLinesIn(const std::filesystem::path& log, std::uintmax_t from = 0);
// The texts of this run's error lines, without time and level.
std::vector<std::string> ownErrorLines();

// The cause that this run's error lines name where the code stands for several, and what to do about it; empty if they name none.
std::string_view causeInLog(unsigned long code);

} // namespace quelta::tools
