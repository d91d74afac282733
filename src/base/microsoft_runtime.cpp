#include "base/microsoft_runtime.h"

#include <algorithm>
#include <cstring>

namespace quelta {

bool isMicrosoftRuntime(std::string_view import)
{
    constexpr std::string_view microsoftRuntimes[] = {"VCRUNTIME", "MSVCP", "UCRTBASE", "API-MS-WIN-CRT-"};
    return std::ranges::any_of(microsoftRuntimes, [&](std::string_view prefix) {
        return import.size() >= prefix.size() && _strnicmp(import.data(), prefix.data(), prefix.size()) == 0;
    });
}

} // namespace quelta
