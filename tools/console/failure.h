// The tool's failures. The text is one line for the user that says what to do next.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace quelta::tools {

class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A negative answer: the signature is not of this file, or its chain is not valid.
class Refusal : public Failure {
    using Failure::Failure;
};

// A refusal by the provider or by Windows, with its code.
class CallFailure : public Failure {
public:
    CallFailure(const std::string& text, unsigned long code) : Failure(text), code_(code) {}
    unsigned long code() const { return code_; }

private:
    unsigned long code_;
};

// Throws a CodeFailure. `what` names the step. `code` is a Win32 code, an NTE_ code or a SECURITY_STATUS, and selects the advice.
// The text quotes the newest error line of this run from the provider's log.
[[noreturn]] void fail(std::string_view what, unsigned long code);
// Returns the text of that failure.
std::string failureText(std::string_view what, unsigned long code);
// The same with the thread's last error.
[[noreturn]] void failWithLastError(std::string_view what);

// The same for the opening of the provider, where some codes mean something else.
[[noreturn]] void failOpening(std::string_view what, unsigned long code);

} // namespace quelta::tools
