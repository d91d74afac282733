#pragma once

#include <string_view>

namespace quelta {

// True if a DLL of this name is a runtime of Microsoft's compiler. The comparison ignores case.
bool isMicrosoftRuntime(std::string_view import);

} // namespace quelta
