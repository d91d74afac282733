// The maker's device library where the module finds it. The installer copies it from where the administrator says, and keeps a
// hash of the copy. Only a file of this hash is the installer's own: it replaces and removes no other.
#pragma once

#include <optional>
#include <string>

namespace quelta::installer {

// Empty when it went well, else what is wrong and what to do, for a person.
using Trouble = std::optional<std::wstring>;

// Trouble if there is one that nobody may overwrite.
Trouble otherDeviceLibrary();

// What copying would refuse; nothing is changed.
Trouble checkDeviceLibrary(const std::wstring& source);
Trouble copyDeviceLibrary(const std::wstring& source);

// One of them after a copy. The second does nothing where there was none.
void keepDeviceLibrary();
void undoDeviceLibrary();

Trouble removeDeviceLibrary();

} // namespace quelta::installer
