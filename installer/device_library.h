// The maker's device library where the module finds it: copied from where the administrator says, and taken away again if it was
// the installer that put it there. Somebody else's is left alone.
#pragma once

#include <optional>
#include <string>

namespace quelta::installer {

// Empty when it went well, else what is wrong, for a person.
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
