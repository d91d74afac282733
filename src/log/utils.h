#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quelta {

// Text helpers that the log writer and the key names share. No state.
class Utils {
public:
    virtual ~Utils() = default;

    // The pieces between occurrences of `delimiter`, in order; at least one, empty ones included. An empty delimiter splits
    // nothing.
    static std::vector<std::string> split(std::string text, std::string_view delimiter);

    // Upper-case hexadecimal, two characters a byte, no separators. A length below 1 gives an empty text.
    static std::string toHex(const unsigned char* bytes, int length);
};

} // namespace quelta
