// A QueltaDSCLibrary.dll that keeps the arguments of each call and passes the call on to the software token.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace quelta::test {

// As the calling convention passes them: a bool is the lowest byte, an int the lower half. The rest of the eight bytes, and what
// comes after a function's last argument, is not defined. A result that is an object has the first place.
using Argument = std::uintptr_t;
using Arguments = std::array<Argument, 11>;
// The last call of each function.
using RecordedCalls = std::map<std::string, Arguments>;

using TokensFunction = Argument (*)(Argument, Argument, Argument, Argument, Argument, Argument, Argument, Argument, Argument,
                                    Argument, Argument);
TokensFunction tokensFunction(const char* name);
void record(const char* function, const Arguments& arguments);

} // namespace quelta::test

// Exported beside the library's own functions.
extern "C" __declspec(dllexport) void recordedCalls(quelta::test::RecordedCalls& calls);
