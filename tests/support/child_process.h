#pragma once

#include <windows.h>

#include <filesystem>
#include <optional>
#include <string>

namespace quelta::test {

std::filesystem::path ownExecutable();

// Runs a program to its end and returns the exit code. Ends a program that takes longer than two minutes, and returns nothing.
// The program writes to the test's output.
std::optional<DWORD> runProcess(std::string commandLine);

// Runs one disabled test of this executable, or of a copy, in a process of its own. Returns what runProcess returns.
std::optional<DWORD> runDisabledTest(const std::filesystem::path& executable, const std::string& test);

} // namespace quelta::test
