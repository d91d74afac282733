// Copies the maker's device library from the administrator's path to the system's folder, where the module finds it. The
// installer keeps a hash of the copy. It replaces and removes only a file with this hash.
#pragma once

#include <optional>
#include <string>

namespace quelta::installer {

// Nullopt on success, else a text for people: what is wrong, and what to do.
using Trouble = std::optional<std::wstring>;

// Returns trouble if a library is there that is not the installer's copy.
Trouble otherDeviceLibrary();

// Returns the trouble that copying would meet. Changes nothing.
Trouble checkDeviceLibrary(const std::wstring& source);
Trouble copyDeviceLibrary(const std::wstring& source);

// After a copy exactly one of them is called. undoDeviceLibrary() does nothing if there was no copy.
void keepDeviceLibrary();
void undoDeviceLibrary();

Trouble removeDeviceLibrary();

} // namespace quelta::installer
