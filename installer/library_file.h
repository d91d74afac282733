// The file that the administrator names as the maker's library. It is only read: none of its code runs, and what it is linked to
// need not be there.
#pragma once

#include "base/bytes.h"

#include <expected>
#include <string>

namespace quelta::installer {

// The content of a file; an error of Windows otherwise.
std::expected<Bytes, unsigned long> contentOf(const std::wstring& path);

// The content of a library that the module can load. Otherwise what is wrong and what to do, for a person.
std::expected<Bytes, std::wstring> deviceLibraryIn(const std::wstring& path);

// " (Windows' error 5)", for the end of a text.
std::wstring because(unsigned long error);

} // namespace quelta::installer
