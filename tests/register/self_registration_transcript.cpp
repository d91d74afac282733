#include "support/scenario.h"

#include "register/self_registration.h"

#include <ncrypt.h>

#include <array>

namespace quelta::test {

namespace {

enum CngFunction { cngRegister, cngUnregister, cngAdd, cngRemove };
constexpr const char* cngNames[] = {"BCryptRegisterProvider", "BCryptUnregisterProvider", "BCryptAddContextFunctionProvider",
                                    "BCryptRemoveContextFunctionProvider"};

// A bcrypt.dll that lacks the function that a scenario names, and answers what the scenario says.
class FakeCngLibrary final : public CngLibrary {
public:
    explicit FakeCngLibrary(Recorder& to)
    {
        recorder = &to;
        answers = {};
    }

    HMODULE load() const override
    {
        recorder->writeDown(loads ? "bcrypt.dll is loaded" : "bcrypt.dll can't be loaded");
        return loads ? handle : nullptr;
    }
    FARPROC find(HMODULE, const char* function) const override
    {
        void* const addresses[] = {reinterpret_cast<void*>(&answer<cngRegister, LPCWSTR, ULONG, CRYPT_PROVIDER_REG*>),
                                   reinterpret_cast<void*>(&answer<cngUnregister, LPCWSTR>),
                                   reinterpret_cast<void*>(&answer<cngAdd, ULONG, LPCWSTR, ULONG, LPCWSTR, LPCWSTR, ULONG>),
                                   reinterpret_cast<void*>(&answer<cngRemove, ULONG, LPCWSTR, ULONG, LPCWSTR, LPCWSTR>)};
        const auto* const known = std::ranges::find(cngNames, std::string_view(function));
        if (known != std::end(cngNames) && missing != function) return reinterpret_cast<FARPROC>(addresses[known - cngNames]);
        recorder->writeDown("it has no " + std::string(function));
        return nullptr;
    }
    void free(HMODULE library) const override
    {
        recorder->writeDown(library == handle ? "bcrypt.dll is freed" : "another is freed");
    }

    bool loads = true;
    std::string missing;

    // These are static, since the functions belong to no object.
    static inline Recorder* recorder;
    static inline std::array<NTSTATUS, std::size(cngNames)> answers;

private:
    static inline const HMODULE handle = GetModuleHandleA(nullptr);

    static std::string text(LPCWSTR argument) { return quoted(argument); }
    static std::string text(ULONG argument) { return std::to_string(argument); }
    static std::string text(const CRYPT_PROVIDER_REG* record)
    {
        const CRYPT_IMAGE_REG& image = *record->pUM;
        const CRYPT_INTERFACE_REG& face = *image.rgpInterfaces[0];
        return text(record->cAliases) + " aliases" + (record->rgpszAliases ? " listed" : "") +
               (record->pKM ? ", a kernel's image" : "") + ", " + text(image.pszImage) + " with " + text(image.cInterfaces) +
               " interface " + text(face.dwInterface) + " flags " + text(face.dwFlags) + " with " + text(face.cFunctions) +
               " function " + text(face.rgpszFunctions[0]);
    }
    template <CngFunction function, class... Arguments>
    static NTSTATUS WINAPI answer(Arguments... arguments)
    {
        std::string all;
        ((all += (all.empty() ? "" : ", ") + text(arguments)), ...);
        recorder->writeDown(cngNames[function] + ("(" + all) + ") = " + std::to_string(answers[function]));
        return answers[function];
    }
};

constexpr NTSTATUS accessDenied = static_cast<NTSTATUS>(0xC0000022);

} // namespace

class SelfRegistrationTranscript : public Scenario {
protected:
    void record(const char* name, HRESULT (*call)(const CngLibrary&), const char* missing)
    {
        cng.missing = missing;
        recorder.recordInner(name, "", [&] {
            const HRESULT result = call(cng);
            const Bytes bytes = reversed(littleEndian({static_cast<std::uint32_t>(result)}));
            return result == S_OK ? "S_OK" : result == E_FAIL ? "E_FAIL" : "0x" + toHex(bytes);
        });
    }
    void registers(const char* missing = "") { record("DllRegisterServer", registerProvider, missing); }
    void unregisters(const char* missing = "") { record("DllUnregisterServer", unregisterProvider, missing); }

    FakeCngLibrary cng{recorder};
};

TRANSCRIPT(SelfRegistrationTranscript, "an earlier registration is taken back first, whatever that answers")
{
    FakeCngLibrary::answers[cngUnregister] = FakeCngLibrary::answers[cngRemove] = accessDenied;
    registers();
    unregisters();
}

TRANSCRIPT(SelfRegistrationTranscript, "a missing function is found before anything is changed")
{
    errorsAlone();
    for (const auto function : {cngRegister, cngUnregister, cngAdd}) registers(cngNames[function]);
    recorder.note("one that is not needed");
    for (const auto function : {cngRemove, cngUnregister}) unregisters(cngNames[function]);
    registers(cngNames[cngRemove]);
}

TRANSCRIPT(SelfRegistrationTranscript, "a failure comes back as a result, and in decimal in the log")
{
    errorsAlone();
    FakeCngLibrary::answers[cngRegister] = accessDenied;
    registers();
    everyLine();
    FakeCngLibrary::answers = {};
    FakeCngLibrary::answers[cngAdd] = 5;
    registers();
    recorder.note("a library that can't be loaded is not freed");
    cng.loads = false;
    registers();
    unregisters();
}

} // namespace quelta::test
