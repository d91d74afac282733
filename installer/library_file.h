// Checks the file that the administrator names as the maker's library. The file is only read: none of its code runs, and the DLLs
// that it imports may be missing.
#pragma once

#include "base/bytes.h"

#include <expected>
#include <string>

namespace quelta::installer {

// Returns the content of a file, else Windows' error.
std::expected<Bytes, unsigned long> contentOf(const std::wstring& path);

// Returns the content of a library that the module can load. Otherwise a text for people: what is wrong, and what to do.
std::expected<Bytes, std::wstring> deviceLibraryIn(const std::wstring& path);

// Returns a text like " (Windows' error 5)".
std::wstring because(unsigned long error);

} // namespace quelta::installer
