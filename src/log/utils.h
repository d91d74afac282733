#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quelta {

// Text helpers without state.
class Utils {
public:
    virtual ~Utils() = default;

    // Returns the pieces of `text` between occurrences of `delimiter`, empty ones included: at least one. An empty delimiter does
    // not split the text.
    static std::vector<std::string> split(std::string text, std::string_view delimiter);

    // Returns upper-case hexadecimal: two characters for each byte, no separators. A length below 1 gives an empty text.
    static std::string toHex(const unsigned char* bytes, int length);
};

} // namespace quelta
