#include "end_to_end/recording/recording_library.h"

#include "support/child_process.h"

#include <mutex>

namespace quelta::test {

namespace {

std::mutex callsMutex;
RecordedCalls calls;

} // namespace

TokensFunction tokensFunction(const char* name)
{
    const auto token = ownExecutable().parent_path().parent_path() / "softtoken" / "QueltaDSCLibrary.dll";
    static const HMODULE library = LoadLibraryW(token.c_str());
    return reinterpret_cast<TokensFunction>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

void record(const char* function, const Arguments& arguments)
{
    const std::lock_guard lock(callsMutex);
    calls[function] = arguments;
}

} // namespace quelta::test

void recordedCalls(quelta::test::RecordedCalls& calls)
{
    const std::lock_guard lock(quelta::test::callsMutex);
    calls = quelta::test::calls;
}
