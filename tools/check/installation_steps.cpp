#include "base/microsoft_runtime.h"
#include "base/provider_name.h"
#include "base/text.h"
#include "tools/check/dll_file.h"
#include "tools/check/steps.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/provider_log.h"
#include "tools/console/text.h"
#include "tools/token/key_storage.h"
#include "version.h"

#include <array>

namespace quelta::tools {

namespace {

constexpr auto libraryName = L"QueltaDSCLibrary.dll";
constexpr auto repair = "; repair the installation (as an administrator: msiexec /famus FILE, the installed package's .msi)";

bool isFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored);
}

template <class Fill>
std::filesystem::path pathBy(Fill fill)
{
    std::array<wchar_t, 1024> path{};
    fill(path.data(), static_cast<DWORD>(path.size()));
    return path.data();
}

std::filesystem::path ownFolder()
{
    return pathBy([](wchar_t* path, DWORD size) { GetModuleFileNameW(nullptr, path, size); }).parent_path();
}

std::filesystem::path systemFolder()
{
    return pathBy([](wchar_t* path, DWORD size) { GetSystemDirectoryW(path, size); });
}

std::filesystem::path onSearchPath(const wchar_t* name)
{
    return pathBy([&](wchar_t* path, DWORD size) { SearchPathW(nullptr, name, nullptr, size, path, nullptr); });
}

// Returns the path of the registered module. A name without a folder is looked up where the system looks for DLLs.
std::filesystem::path registeredImage()
{
    const auto image = registeredModule();
    return image.empty() || image.is_absolute() ? image : onSearchPath(image.c_str());
}

bool isNamedAsModule(const std::filesystem::path& dll)
{
    return folded(nameOf(dll.filename())) == folded(nameOf(moduleName));
}

std::filesystem::path firstThatExists(std::initializer_list<std::filesystem::path> candidates)
{
    for (const auto& candidate : candidates)
        if (isFile(candidate)) return candidate;
    return {};
}

// The system resolves names of API sets. They are no files.
bool isApiSet(const std::string& name)
{
    return folded(name).starts_with("api-ms-") || folded(name).starts_with("ext-ms-");
}

bool isThere(const std::string& import, const std::filesystem::path& folder)
{
    return isApiSet(import) || isFile(folder / pathOf(import)) || !onSearchPath(toWide(import).c_str()).empty();
}

// Returns a DLL that `dll` imports and that can't be found; empty if there is none.
std::string missingImportOf(const std::filesystem::path& dll)
{
    for (const std::string& import : readDllFile(dll).imports)
        if (!isThere(import, dll.parent_path())) return import;
    return {};
}

// Names a missing DLL that the module or the device library needs. A DLL that only another one needs is not named.
std::string whyNotLoaded(const Examination& examination, DWORD error)
{
    for (const auto& dll : {examination.module, examination.deviceLibrary})
        if (const std::string missing = missingImportOf(dll); !missing.empty())
            return missing + " is missing, which " + nameOf(dll.filename()) + " needs; " +
                   (isMicrosoftRuntime(missing) ? "install Microsoft's Visual C++ Redistributable (x64)"
                                                : "put it beside the module");
    const std::string name = nameOf(examination.deviceLibrary);
    if (error == ERROR_MOD_NOT_FOUND)
        return "a DLL is missing that " + name + " needs through another one; ask the maker which DLLs it needs";
    if (error == ERROR_PROC_NOT_FOUND)
        return name + ", or a DLL that it needs, is of another version; put the maker's newest library in its place";
    const Library library(LoadLibraryExW(examination.deviceLibrary.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    if (!library) error = GetLastError();
    return (library ? nameOf(examination.module) : name) + " is damaged, or it fails when it starts (Windows error " +
           std::to_string(error) + "); " +
           (library ? "install the provider anew"
                    : "put the maker's library in its place, and ask the maker if that does not help");
}

Found lookAtModule(Examination& examination)
{
    const auto registered = registeredImage();
    examination.module = firstThatExists({isNamedAsModule(registered) ? registered : std::filesystem::path(),
                                          ownFolder() / moduleName, systemFolder() / moduleName});
    const auto& module = examination.module;
    if (module.empty())
        throw Failure(
            "QueltaCSP.dll is neither where it is registered nor beside this program nor in the system's folder; install "
            "the package, or repair the installation");
    examination.deviceLibrary = firstThatExists({module.parent_path() / libraryName, onSearchPath(libraryName)});
    if (const auto dll = readDllFile(module); !dll.fault.empty())
        throw Failure(nameOf(module) + " " + dll.fault + "; install the provider anew");
    return {Verdict::ok, nameOf(module)};
}

void refuseMisfit(const Examination& examination, Compiler module, Compiler library)
{
    if (module == library || module == Compiler::unknown || library == Compiler::unknown) return;
    throw Failure(nameOf(examination.deviceLibrary) + (library == Compiler::visualCpp
                                                           ? " does not fit the module: it was built with Visual C++, and the "
                                                             "module was not; keep the library, and install the "
                                                             "package for real tokens, whose module was built with Visual C++"
                                                           : " does not fit the module: it was built with GCC, as the software "
                                                             "token is, and the module with Visual C++; keep the "
                                                             "module, and install the maker's library"));
}

Found lookAtDeviceLibrary(Examination& examination)
{
    if (examination.module.empty()) return {Verdict::leftOut, "there is no module"};
    const auto& library = examination.deviceLibrary;
    if (library.empty())
        throw Failure("the maker's QueltaDSCLibrary.dll is missing; put it beside " + nameOf(examination.module));
    const DllFile dll = readDllFile(library);
    if (!dll.fault.empty()) throw Failure(nameOf(library) + " " + dll.fault + "; put the maker's 64-bit library in its place");
    const DllFile module = readDllFile(examination.module);
    if (!module.fault.empty()) return {Verdict::leftOut, "the module is damaged"};
    refuseMisfit(examination, module.compiler, dll.compiler);
    examination.filesFit = true;
    if (dll.compiler == Compiler::unknown && module.compiler == Compiler::gcc)
        return {Verdict::note, nameOf(library) +
                                   ", whose compiler can't be told, and the module was built with GCC; if this is the " +
                                   "maker's library, install the QueltaCSP.dll that was built with Visual C++"};
    if (library.parent_path() != examination.module.parent_path())
        return {Verdict::note, nameOf(library) + ", which is not beside the module"};
    return {Verdict::ok, nameOf(library)};
}

Found lookAtLoading(Examination& examination)
{
    examination.loaded.reset(LoadLibraryExW(examination.module.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    const DWORD error = GetLastError();
    if (!examination.loaded) throw Failure("the module can't be loaded: " + whyNotLoaded(examination, error));
    return {Verdict::ok, "Windows loads the module with the library"};
}

Found lookAtCryptoApi(Examination& examination)
{
    const std::wstring key = toWide(providerRegistryKey());
    DWORD type = 0;
    DWORD size = sizeof type;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Type", RRF_RT_REG_DWORD, nullptr, &type, &size))
        throw Failure("not registered under HKLM\\" + providerRegistryKey() + repair);
    if (type != PROV_RSA_FULL) throw Failure("registered with type " + std::to_string(type) + " in place of 1" + repair);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Signature", RRF_RT_ANY, nullptr, nullptr, nullptr))
        throw Failure(std::string("registered without a Signature, which Windows asks for") + repair);
    const auto image = registeredImage();
    if (!isFile(image)) throw Failure("registered, but this file is missing: " + nameOf(registeredModule()) + repair);
    if (!isNamedAsModule(image))
        throw Failure("registered with another DLL, " + nameOf(image) + ", in place of QueltaCSP.dll" + repair);
    const auto installed = systemFolder() / moduleName;
    std::error_code ignored;
    if (isFile(installed) && !std::filesystem::equivalent(image, installed, ignored))
        throw Failure("registered with another copy, " + nameOf(image) + ", than the installed " + nameOf(installed) + repair);
    examination.registered = true;
    return {Verdict::ok, "registered as " + nameOf(image)};
}

Found lookAtKeyStorage(Examination&)
{
    if (isWine())
        return {Verdict::note, "this is Wine, which loads no key storage providers; the module is loaded by this program"};
    if (!isKeyStorageRegistered()) throw Failure("not registered; as an administrator: regsvr32 QueltaCSP.dll");
    NCRYPT_PROV_HANDLE provider = 0;
    const SECURITY_STATUS status = NCryptOpenStorageProvider(&provider, wideProviderName, 0);
    if (status == 0) NCryptFreeObject(provider);
    constexpr auto noToken = static_cast<SECURITY_STATUS>(0x80090035);
    if (status == 0 || status == noToken) return {Verdict::ok, "registered, and the system loads it"};
    failOpening("registered, but the system can't open it", static_cast<unsigned long>(status));
}

std::string versionOf(const std::filesystem::path& dll)
{
    if (dll.empty()) return "missing";
    DWORD ignored = 0;
    Bytes block(GetFileVersionInfoSizeW(dll.c_str(), &ignored));
    void* found = nullptr;
    UINT size = 0;
    if (block.empty() || !GetFileVersionInfoW(dll.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !VerQueryValueW(block.data(), L"\\", &found, &size))
        return "of no stated version";
    const auto& info = *static_cast<const VS_FIXEDFILEINFO*>(found);
    return std::to_string(HIWORD(info.dwFileVersionMS)) + '.' + std::to_string(LOWORD(info.dwFileVersionMS)) + '.' +
           std::to_string(HIWORD(info.dwFileVersionLS));
}

Found lookAtVersions(Examination& examination)
{
    const std::string module = versionOf(examination.module);
    const std::string library = examination.module.empty() ? "not looked for" : versionOf(examination.deviceLibrary);
    const std::string text = "quelta " + std::string(version) + ", QueltaCSP.dll " + module + ", QueltaDSCLibrary.dll " + library;
    if (examination.module.empty() || examination.deviceLibrary.empty()) return {Verdict::leftOut, text};
    if (module == version) return {Verdict::ok, text};
    throw Failure(text + "; install the tool and the module of the same version");
}

int logLevel()
{
    unsigned char data[32]{};
    DWORD size = sizeof data;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, L"Software\\Oskvar\\Quelta", L"logLevel", RRF_RT_ANY, nullptr, data, &size)) return 2;
    const auto level = static_cast<signed char>(data[0]);
    return level > 3 ? 2 : level;
}

bool canWriteInto(const std::filesystem::path& folder)
{
    const auto probe = folder / "quelta-check.tmp";
    return fileOf(CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr)) !=
           nullptr;
}

Found lookAtLog(Examination&)
{
    const auto folder = ownLogFile().parent_path();
    const int level = logLevel();
    const std::string where = "level " + std::to_string(level) + ", in " + nameOf(logFolder());
    if (!canWriteInto(folder))
        throw Failure("can't write into " + nameOf(folder) +
                      ", so errors are not logged; see to its permissions and to the disk");
    if (level < 2) return {Verdict::note, where + ": nothing is logged; set logLevel under HKLM\\Software\\Oskvar\\Quelta to 2"};
    if (level > 2) return {Verdict::note, where + ": all is logged, symmetric keys in clear; set logLevel back to 2 when done"};
    return {Verdict::ok, where};
}

constexpr CheckStep stepsWithoutLibrary[] = {
    {"module", Need::nothing, lookAtModule},
    {"device library", Need::nothing, lookAtDeviceLibrary},
    {"CryptoAPI", Need::nothing, lookAtCryptoApi},
    {"versions", Need::nothing, lookAtVersions},
    {"log", Need::nothing, lookAtLog},
};

constexpr CheckStep stepsWithLibrary[] = {
    {"loading", Need::fittingFiles, lookAtLoading},
    {"key storage", Need::module, lookAtKeyStorage},
};

} // namespace

std::span<const CheckStep> fileSteps()
{
    return stepsWithoutLibrary;
}

std::span<const CheckStep> loadingSteps()
{
    return stepsWithLibrary;
}

void requireFittingFiles()
{
    Examination examination;
    lookAtModule(examination);
    lookAtDeviceLibrary(examination);
}

} // namespace quelta::tools
