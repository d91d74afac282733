// What the user is told when something can't be done: one line that says what to do next.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace quelta::tools {

class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A signature that does not belong to the file, a chain that does not hold: the answer to a question, not a mishap.
class Refusal : public Failure {
    using Failure::Failure;
};

// What the provider or Windows refused, with its code.
class CallFailure : public Failure {
public:
    CallFailure(const std::string& text, unsigned long code) : Failure(text), code_(code) {}
    unsigned long code() const { return code_; }

private:
    unsigned long code_;
};

// `what` names the step, `code` is a Win32 code, an NTE_ code or a SECURITY_STATUS; what to do next is looked up by the code. The
// newest error line that the provider's log has of this run is quoted.
[[noreturn]] void fail(std::string_view what, unsigned long code);
// The text of that failure.
std::string failureText(std::string_view what, unsigned long code);
// As above with the thread's last error.
[[noreturn]] void failWithLastError(std::string_view what);

// While the provider is opened some codes mean something else.
[[noreturn]] void failOpening(std::string_view what, unsigned long code);

} // namespace quelta::tools
