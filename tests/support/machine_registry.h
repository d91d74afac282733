#pragma once

#include <windows.h>

#include <string>

namespace quelta::test {

// While it lives, this process has an HKEY_LOCAL_MACHINE of its own, which is empty but for the system's cryptographic providers:
// so tests that run at the same time do not see each other's log level, and the real one stays as it was. Child processes see the
// real.
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
// Any type and content, for the value that the log level is read from.
void setLogLevelValue(DWORD type, const void* data, DWORD size);

} // namespace quelta::test
