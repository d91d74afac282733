// What the provider's log says of this process: its error lines carry the token's own result, which no error code has.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

// The folder with a folder for each program that loads the provider. The system's temporary folder decides.
std::filesystem::path logFolder();
// Today's file of this program, whether or not it is there.
std::filesystem::path ownLogFile();

// To be called first: error lines from then on are this run's.
void rememberLogEnd();
// The texts of this run's error lines, without time and level.
std::vector<std::string> ownErrorLines();

// The result number at the end of the newest of this run's error lines, if it has one.
std::optional<long> tokenResult();
bool dialogFailed();

} // namespace quelta::tools
