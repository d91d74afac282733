// The key storage provider: as the system offers it (NCrypt), else QueltaCSP.dll itself.
#pragma once

#include "tools/token/token_provider.h"

#include <filesystem>

namespace quelta::tools {

constexpr auto moduleName = L"QueltaCSP.dll";

// Whether the system knows the provider. Nothing is loaded and no token is needed. Always false under Wine, which loads none.
bool isKeyStorageRegistered();

// Where CryptoAPI's registration says that the module is, as Windows understands it; empty without one.
std::filesystem::path registeredModule();

} // namespace quelta::tools
