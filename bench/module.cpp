#include "module.h"

#include "base/provider_name.h"

#include <stdexcept>

namespace quelta::bench {

namespace {

constexpr const char logKey[] = "Software\\Oskvar\\Quelta";
constexpr const char logValue[] = "logLevel";

[[noreturn]] void failWith(const std::string& what, long code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(code));
    throw std::runtime_error(what + " failed: " + text + "; the module's log may say why");
}

} // namespace

Module::Module()
{
    std::string path(1024, '\0');
    path.resize(GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size())));
    path.replace(path.find_last_of('\\') + 1, std::string::npos, "QueltaCSP.dll");
    library_.reset(LoadLibraryA(path.c_str()));
    if (!library_) failWith("loading " + path, static_cast<long>(GetLastError()));
    const auto getInterface = function<std::remove_pointer_t<GetKeyStorageInterfaceFunction>>("GetKeyStorageInterface");
    expectDone(getInterface(wideProviderName, &table_, 0), "GetKeyStorageInterface");
}

void* Module::address(const char* name) const
{
    void* const address = reinterpret_cast<void*>(GetProcAddress(library_.get(), name));
    if (!address) throw std::runtime_error(std::string("QueltaCSP.dll has no ") + name);
    return address;
}

void expectTrue(BOOL answer, const char* call)
{
    if (!answer) failWith(call, static_cast<long>(GetLastError()));
}

void expectDone(SECURITY_STATUS status, const char* call)
{
    if (status) failWith(call, status);
}

LogLevel::LogLevel(DWORD level)
{
    DWORD size = sizeof before_;
    wasSet_ = !RegGetValueA(HKEY_LOCAL_MACHINE, logKey, logValue, RRF_RT_REG_DWORD, nullptr, &before_, &size);
    if (const LSTATUS status = RegSetKeyValueA(HKEY_LOCAL_MACHINE, logKey, logValue, REG_DWORD, &level, sizeof level))
        failWith("setting the log's level", status);
}

LogLevel::~LogLevel()
{
    if (wasSet_)
        RegSetKeyValueA(HKEY_LOCAL_MACHINE, logKey, logValue, REG_DWORD, &before_, sizeof before_);
    else
        RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, logKey, logValue);
}

} // namespace quelta::bench
