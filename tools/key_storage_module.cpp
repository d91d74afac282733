#include "key_storage_module.h"

#include "base/provider_name.h"
#include "base/text.h"
#include "failure.h"

#include <string>

namespace quelta::tools {

namespace {

constexpr auto moduleName = L"QueltaCSP.dll";

std::wstring registeredPath()
{
    wchar_t path[MAX_PATH];
    DWORD size = sizeof path;
    const auto status = RegGetValueW(HKEY_LOCAL_MACHINE, toWide(providerRegistryKey()).c_str(), L"Image Path", RRF_RT_REG_SZ,
                                     nullptr, path, &size);
    return status == ERROR_SUCCESS ? path : L"";
}

HMODULE load()
{
    const HMODULE module = LoadLibraryExW(moduleName, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    if (module) return module;
    const std::wstring path = registeredPath();
    return path.empty() ? nullptr : LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

} // namespace

KeyStorageModule::KeyStorageModule() : module_(load())
{
    if (!module_)
        throw Failure(
            "can't load QueltaCSP.dll with its QueltaDSCLibrary.dll; put both beside quelta.exe, or register the provider");
    // By way of void*: compilers warn of a cast between unlike function types, which is what a look-up by name is for.
    void* const address = reinterpret_cast<void*>(GetProcAddress(module_.get(), "GetKeyStorageInterface"));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFunction>(address);
    if (!getInterface || getInterface(wideProviderName, &table_, 0) || !table_)
        throw Failure("QueltaCSP.dll offers no key storage; install a complete one, or use --provider csp");
}

} // namespace quelta::tools
