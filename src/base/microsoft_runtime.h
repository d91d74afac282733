#pragma once

#include <string_view>

namespace quelta {

// True if a DLL of this name, in any case, is a runtime that Microsoft's compiler links.
bool isMicrosoftRuntime(std::string_view import);

} // namespace quelta
