#pragma once

#include <windows.h>

#include <string>

namespace quelta::test {

// While an object lives, this process has an HKEY_LOCAL_MACHINE of its own, with a copy of the system's cryptographic providers.
// So tests that run at the same time do not share a log level. Child processes see the real one.
class PrivateMachineRegistry {
public:
    PrivateMachineRegistry();
    ~PrivateMachineRegistry();
    PrivateMachineRegistry(const PrivateMachineRegistry&) = delete;
    PrivateMachineRegistry& operator=(const PrivateMachineRegistry&) = delete;

private:
    std::string path_;
    HKEY root_ = nullptr;
};

void setLogLevel(DWORD level);
// Writes the value of the log level with any type and content.
void setLogLevelValue(DWORD type, const void* data, DWORD size);

} // namespace quelta::test
