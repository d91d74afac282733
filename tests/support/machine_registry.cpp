#include "support/machine_registry.h"

#include <stdexcept>

namespace quelta::test {

namespace {

constexpr const char providersKey[] = "Software\\Microsoft\\Cryptography\\Defaults";

void check(LSTATUS status, const char* what)
{
    if (status != ERROR_SUCCESS) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(status));
}

void copyProviders(HKEY root)
{
    HKEY copy = nullptr;
    check(RegCreateKeyExA(root, providersKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &copy, nullptr),
          "Making the providers' key");
    const LSTATUS copied = RegCopyTreeA(HKEY_LOCAL_MACHINE, providersKey, copy);
    RegCloseKey(copy);
    check(copied, "Copying the cryptographic providers");
}

} // namespace

PrivateMachineRegistry::PrivateMachineRegistry() : path_("Software\\Quelta tests\\" + std::to_string(GetCurrentProcessId()))
{
    RegDeleteTreeA(HKEY_CURRENT_USER, path_.c_str());
    check(RegCreateKeyExA(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root_, nullptr),
          "Making a registry of the test's own");
    copyProviders(root_);
    check(RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_), "Replacing HKEY_LOCAL_MACHINE");
    setLogLevel(3);
}

PrivateMachineRegistry::~PrivateMachineRegistry()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(root_);
    RegDeleteTreeA(HKEY_CURRENT_USER, path_.c_str());
}

void setLogLevel(DWORD level)
{
    setLogLevelValue(REG_DWORD, &level, sizeof level);
}

void setLogLevelValue(DWORD type, const void* data, DWORD size)
{
    check(RegSetKeyValueA(HKEY_LOCAL_MACHINE, "Software\\Oskvar\\Quelta", "logLevel", type, data, size), "Setting the log level");
}

} // namespace quelta::test
