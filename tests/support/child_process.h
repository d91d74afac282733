#pragma once

#include <windows.h>

#include <filesystem>
#include <optional>
#include <string>

namespace quelta::test {

std::filesystem::path ownExecutable();

// Runs a program to its end: the exit code, or nothing if it took longer than two minutes and was ended. Its output is the
// test's.
std::optional<DWORD> runProcess(std::string commandLine);

// Runs one disabled test of a copy of this executable, or of itself: what a test needs a process of its own for.
std::optional<DWORD> runDisabledTest(const std::filesystem::path& executable, const std::string& test);

} // namespace quelta::test
