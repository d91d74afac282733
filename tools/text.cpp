#include "text.h"

#include "base/text.h"
#include "failure.h"

namespace quelta::tools {

std::string ansi(std::string_view text)
{
    auto result = toCodePage(toWide(text));
    if (!result) throw Failure("a PIN or key name holds a character outside this system's code page; use another one");
    return std::move(*result);
}

std::filesystem::path pathOf(std::string_view text)
{
    return toWide(text);
}

std::string nameOf(const std::filesystem::path& path)
{
    return toUtf8(path.native());
}

} // namespace quelta::tools
