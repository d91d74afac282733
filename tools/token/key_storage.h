// The key storage provider through the system (NCrypt), else through QueltaCSP.dll itself.
#pragma once

#include "tools/token/token_provider.h"

#include <filesystem>

namespace quelta::tools {

constexpr auto moduleName = L"QueltaCSP.dll";

// Returns whether the system knows the provider. Loads nothing and needs no token. Always false under Wine, which loads no
// provider.
bool isKeyStorageRegistered();

// Returns the module's path from CryptoAPI's registration, with variables expanded; empty without a registration.
std::filesystem::path registeredModule();

} // namespace quelta::tools
