// Texts inside the tool are UTF-8; what becomes of them at its edges.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quelta::tools {

// In the process's ANSI code page, which is how a provider takes names and PINs. Throws a Failure when a character has no place
// in it.
std::string ansi(std::string_view text);

std::filesystem::path pathOf(std::string_view text);
std::string nameOf(const std::filesystem::path& path);

} // namespace quelta::tools
