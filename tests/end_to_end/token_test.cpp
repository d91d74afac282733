#include "end_to_end/token_test.h"

#include "base/provider_name.h"
#include "support/child_process.h"

#include <windows.h>

#include <wincrypt.h>

#include <chrono>
#include <stdexcept>

namespace quelta::test {

namespace {

using namespace std::chrono_literals;

void setProviderValue(const char* name, DWORD type, const void* data, std::size_t size)
{
    const LSTATUS status =
        RegSetKeyValueA(HKEY_LOCAL_MACHINE, providerRegistryKey().c_str(), name, type, data, static_cast<DWORD>(size));
    if (status != ERROR_SUCCESS) throw std::runtime_error("Registering the provider failed: " + std::to_string(status));
}

} // namespace

EndToEndTest::EndToEndTest()
{
    std::filesystem::copy(sharedFolder() / "token", folder / "token");
    SetEnvironmentVariableA("QUELTA_TOKEN_DIR", (folder / "token").string().c_str());
    registerBuiltModule();
    user.watch();
}

void EndToEndTest::drive(const std::string& command) const
{
    const std::string program = (ownExecutable().parent_path().parent_path() / "softtoken" / "quelta-token.exe").string();
    EXPECT_EQ(runProcess("\"" + program + "\" " + command, 60s), 0U) << command;
}

void registerBuiltModule()
{
    const std::string module = builtModule();
    const DWORD type = PROV_RSA_FULL;
    const unsigned char signature[4]{};
    setProviderValue("Image Path", REG_SZ, module.c_str(), module.size() + 1);
    setProviderValue("Type", REG_DWORD, &type, sizeof type);
    setProviderValue("Signature", REG_BINARY, signature, sizeof signature);
}

std::string builtModule()
{
    return (ownExecutable().parent_path() / "QueltaCSP.dll").string();
}

std::string keyName(const std::string& label)
{
    return textOfFile(sharedFolder() / (label + ".id"));
}

} // namespace quelta::test
