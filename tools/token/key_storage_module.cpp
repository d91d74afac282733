#include "tools/token/key_storage_module.h"

#include "base/provider_name.h"
#include "base/text.h"
#include "tools/console/failure.h"
#include "tools/token/system_key_storage.h"

#include <array>

namespace quelta::tools {

std::filesystem::path registeredModule()
{
    std::array<wchar_t, 1024> path{};
    auto size = static_cast<DWORD>(sizeof path);
    const auto status = RegGetValueW(HKEY_LOCAL_MACHINE, toWide(providerRegistryKey()).c_str(), L"Image Path", RRF_RT_REG_SZ,
                                     nullptr, path.data(), &size);
    return status == ERROR_SUCCESS ? path.data() : L"";
}

Library loadModule()
{
    const auto path = registeredModule();
    Library module(path.is_absolute() ? LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH) : nullptr);
    if (!module) module.reset(LoadLibraryExW(moduleName, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS));
    return module;
}

KeyStorage::KeyStorage() : table_(systemKeyStorage())
{
    if (table_) return;
    module_ = loadModule();
    if (!module_) throw Failure("can't load QueltaCSP.dll with its QueltaDSCLibrary.dll; quelta check tells what is missing");
    // By way of void*: compilers warn of a cast between unlike function types, which is what a look-up by name is for.
    void* const address = reinterpret_cast<void*>(GetProcAddress(module_.get(), "GetKeyStorageInterface"));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFunction>(address);
    KeyStorageFunctionTable* table = nullptr;
    if (!getInterface || getInterface(wideProviderName, &table, 0) || !table)
        throw Failure("QueltaCSP.dll offers no key storage; install a complete one, or use --provider csp");
    table_ = table;
}

} // namespace quelta::tools
