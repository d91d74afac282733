#include "base/microsoft_runtime.h"
#include "base/provider_name.h"
#include "base/text.h"
#include "common/dll_imports.h"
#include "tools/check/steps.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"
#include "tools/token/key_storage_module.h"
#include "tools/token/system_key_storage.h"
#include "version.h"

#include <array>

namespace quelta::tools {

namespace {

constexpr auto libraryName = L"QueltaDSCLibrary.dll";

bool isFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored);
}

std::filesystem::path ownFolder()
{
    std::array<wchar_t, 1024> path{};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return std::filesystem::path(path.data()).parent_path();
}

std::filesystem::path systemFolder()
{
    std::array<wchar_t, 1024> path{};
    GetSystemDirectoryW(path.data(), static_cast<UINT>(path.size()));
    return path.data();
}

std::filesystem::path onSearchPath(const wchar_t* name)
{
    std::array<wchar_t, 1024> path{};
    SearchPathW(nullptr, name, nullptr, static_cast<DWORD>(path.size()), path.data(), nullptr);
    return path.data();
}

// A name alone is looked for where the system looks for DLLs.
std::filesystem::path registeredImage()
{
    const auto image = registeredModule();
    return image.empty() || image.is_absolute() ? image : onSearchPath(image.c_str());
}

std::filesystem::path firstThatExists(std::initializer_list<std::filesystem::path> candidates)
{
    for (const auto& candidate : candidates)
        if (isFile(candidate)) return candidate;
    return {};
}

std::filesystem::path pathOfLoaded(HMODULE module)
{
    std::array<wchar_t, 1024> path{};
    GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    return path.data();
}

std::optional<std::vector<std::string>> importsOfFile(const std::filesystem::path& path)
{
    constexpr std::size_t limit = std::size_t{256} * 1024 * 1024;
    return importsOf(readSmallFile(path, limit));
}

// Names of API sets are resolved by the system, and no file has them.
bool isApiSet(const std::string& name)
{
    return folded(name).starts_with("api-ms-") || folded(name).starts_with("ext-ms-");
}

bool isThere(const std::string& import, const std::filesystem::path& folder)
{
    return isApiSet(import) || isFile(folder / pathOf(import)) || !onSearchPath(toWide(import).c_str()).empty();
}

// What a DLL needs and nobody has, or what those need that it needs: the device library brings its own.
std::string missingImportOf(const std::filesystem::path& dll)
{
    const auto imports = importsOfFile(dll);
    if (!imports) return {};
    for (const std::string& import : *imports)
        if (!isThere(import, dll.parent_path())) return import;
    return {};
}

std::string whyNotLoaded(const Examination& examination, DWORD error)
{
    for (const auto& dll : {examination.module, examination.deviceLibrary}) {
        if (dll.empty()) continue;
        if (const std::string missing = missingImportOf(dll); !missing.empty())
            return missing + " is missing, which " + nameOf(dll.filename()) + " needs";
    }
    if (error == ERROR_PROC_NOT_FOUND) return "a DLL that it needs is of another version";
    return "Windows refuses it with error " + std::to_string(error);
}

Found lookAtModule(Examination& examination)
{
    examination.module = firstThatExists({registeredImage(), ownFolder() / moduleName, systemFolder() / moduleName});
    if (examination.module.empty())
        return {Finding::failed,
                "QueltaCSP.dll is neither registered nor beside this program nor in the system's folder; install it"};
    const auto folder = examination.module.parent_path();
    examination.deviceLibrary = firstThatExists({folder / libraryName, onSearchPath(libraryName)});
    if (!importsOfFile(examination.module))
        return {Finding::failed, nameOf(examination.module) + " is no 64-bit DLL; install it anew"};
    examination.loaded.reset(LoadLibraryExW(examination.module.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    const DWORD error = GetLastError();
    if (!examination.loaded)
        return {Finding::failed, nameOf(examination.module) + " can't be loaded: " + whyNotLoaded(examination, error) +
                                     "; put it beside the module, or install anew"};
    return {Finding::ok, nameOf(examination.module)};
}

bool isMicrosofts(const std::filesystem::path& dll)
{
    const auto imports = importsOfFile(dll);
    return imports && std::ranges::any_of(*imports, [](const std::string& name) { return isMicrosoftRuntime(name); });
}

Found lookAtDeviceLibrary(Examination& examination)
{
    if (examination.module.empty()) return {Finding::leftOut, "there is no module"};
    if (const HMODULE loaded = GetModuleHandleW(libraryName)) examination.deviceLibrary = pathOfLoaded(loaded);
    const auto& library = examination.deviceLibrary;
    if (library.empty())
        return {Finding::failed, "the maker's QueltaDSCLibrary.dll is missing; put it beside " + nameOf(examination.module)};
    if (isMicrosofts(library) != isMicrosofts(examination.module))
        return {Finding::failed, nameOf(library) +
                                     " and the module were built with different compilers and can't work together; " +
                                     "install the QueltaCSP.dll that was built with Visual C++"};
    const bool beside = library.parent_path() == examination.module.parent_path();
    return {beside ? Finding::ok : Finding::note, nameOf(library) + (beside ? "" : ", which is not beside the module")};
}

Found lookAtCryptoApi(Examination&)
{
    const std::wstring key = toWide(providerRegistryKey());
    DWORD type = 0;
    DWORD size = sizeof type;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Type", RRF_RT_REG_DWORD, nullptr, &type, &size))
        return {Finding::failed,
                "not registered; install anew, or write Image Path, Type and Signature under HKLM\\" + providerRegistryKey()};
    if (type != PROV_RSA_FULL)
        return {Finding::failed, "registered with type " + std::to_string(type) + " in place of 1; install anew"};
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Signature", RRF_RT_ANY, nullptr, nullptr, nullptr))
        return {Finding::failed, "registered without a Signature, which Windows asks for; install anew"};
    const auto image = registeredImage();
    if (!isFile(image)) return {Finding::failed, "registered, but its Image Path leads to no file; install anew"};
    return {Finding::ok, "registered as " + nameOf(image)};
}

Found lookAtKeyStorage(Examination&)
{
    if (systemKeyStorage()) return {Finding::ok, "registered, and the system loads it"};
    if (isWine())
        return {Finding::note, "this is Wine, which loads no key storage providers; the module is loaded by this program"};
    return {Finding::failed, "not registered, or no token is plugged in; as an administrator: regsvr32 QueltaCSP.dll"};
}

// Empty if the file says none.
std::string versionOf(const std::filesystem::path& dll)
{
    DWORD ignored = 0;
    Bytes block(GetFileVersionInfoSizeW(dll.c_str(), &ignored));
    void* found = nullptr;
    UINT size = 0;
    if (block.empty() || !GetFileVersionInfoW(dll.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !VerQueryValueW(block.data(), L"\\", &found, &size))
        return {};
    const auto& info = *static_cast<const VS_FIXEDFILEINFO*>(found);
    return std::to_string(HIWORD(info.dwFileVersionMS)) + '.' + std::to_string(LOWORD(info.dwFileVersionMS)) + '.' +
           std::to_string(HIWORD(info.dwFileVersionLS));
}

std::string orUnknown(const std::string& text)
{
    return text.empty() ? "of no stated version" : text;
}

Found lookAtVersions(Examination& examination)
{
    const std::string module = versionOf(examination.module);
    const std::string text = "quelta " + std::string(version) + ", QueltaCSP.dll " + orUnknown(module) +
                             ", QueltaDSCLibrary.dll " + orUnknown(versionOf(examination.deviceLibrary));
    if (examination.module.empty() || module == version) return {Finding::ok, text};
    return {Finding::failed, text + "; install the tool and the module of the same version"};
}

constexpr CheckStep steps[] = {
    {"module", lookAtModule},       {"device library", lookAtDeviceLibrary},
    {"CryptoAPI", lookAtCryptoApi}, {"key storage", lookAtKeyStorage},
    {"versions", lookAtVersions},
};

} // namespace

std::span<const CheckStep> installationSteps()
{
    return steps;
}

} // namespace quelta::tools
