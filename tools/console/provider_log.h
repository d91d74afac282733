// Reads the provider's log of this process. Its error lines have the token's own result, which no error code has.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quelta::tools {

// Returns the folder that has a folder for each program.
std::filesystem::path logFolder();
// Returns the path of today's file of this program, whether or not the file exists.
std::filesystem::path ownLogFile();

// Must be called first. Later error lines belong to this run.
void rememberLogEnd();
// Returns the error lines of a log from the position `from` in the file.
std::vector<std::string> errorLinesIn(const std::filesystem::path& log, std::uintmax_t from = 0);
// Returns the texts of this run's error lines, without time and level.
std::vector<std::string> ownErrorLines();

// Returns the cause that this run's error lines name, if the code has several causes, and the remedy. Empty if they name none.
std::string_view causeInLog(unsigned long code);

} // namespace quelta::tools
