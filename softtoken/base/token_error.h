#pragma once

#include <stdexcept>
#include <string>

namespace quelta::softtoken {

// The results of the exported functions. Callers know 0, 48 (clock mismatch) and 49 (single sign-on expired), and take all others
// as failures. The numbers help whoever reads a log.
enum class Result : int {
    ok = 0,
    failed = 1,
    badArgument = 2,
    noToken = 3,
    wrongPin = 4,
    pinLocked = 5,
    noSuchKey = 6,
    bufferTooSmall = 7,
    badData = 8,
    usageRefused = 9,
};

// The text is one line. It says what is wrong and, where that is not obvious, what to do next.
class TokenError : public std::runtime_error {
public:
    explicit TokenError(const std::string& message) : std::runtime_error(message) {}
    TokenError(Result result, const std::string& message) : std::runtime_error(message), result_(result) {}
    Result result() const { return result_; }

private:
    Result result_ = Result::failed;
};

} // namespace quelta::softtoken
