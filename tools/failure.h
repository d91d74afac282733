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

// `what` names the step, `code` is a Win32 code, an NTE_ code or a SECURITY_STATUS; what to do next is looked up by the code.
[[noreturn]] void fail(std::string_view what, unsigned long code);

// As above with the thread's last error.
[[noreturn]] void failWithLastError(std::string_view what);

} // namespace quelta::tools
