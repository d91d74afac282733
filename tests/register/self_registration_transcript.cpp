#include "support/scenario.h"

#include "register/self_registration.h"

#include <ncrypt.h>

namespace quelta::test {

namespace {

// A bcrypt.dll that lacks what a scenario says and answers what it says.
class FakeCngLibrary final : public CngLibrary {
public:
    explicit FakeCngLibrary(Recorder& to)
    {
        recorder = &to;
        registerStatus = addStatus = otherStatus = 0;
    }

    bool load() override
    {
        recorder->writeDown(loads ? "bcrypt.dll is loaded" : "bcrypt.dll can't be loaded");
        return loads;
    }
    FARPROC find(const char* function) override
    {
        const std::pair<std::string_view, void*> functions[] = {
            {"BCryptRegisterProvider", reinterpret_cast<void*>(&registerProvider)},
            {"BCryptUnregisterProvider", reinterpret_cast<void*>(&unregisterProvider)},
            {"BCryptAddContextFunctionProvider", reinterpret_cast<void*>(&addProvider)},
            {"BCryptRemoveContextFunctionProvider", reinterpret_cast<void*>(&removeProvider)}};
        if (missing != function) {
            for (const auto& [name, address] : functions)
                if (name == function) return reinterpret_cast<FARPROC>(address);
        }
        recorder->writeDown("it has no " + std::string(function));
        return nullptr;
    }
    void free() override { recorder->writeDown("bcrypt.dll is freed"); }

    bool loads = true;
    std::string missing;

    // The functions have no object to belong to.
    static inline Recorder* recorder;
    static inline NTSTATUS registerStatus;
    static inline NTSTATUS addStatus;
    static inline NTSTATUS otherStatus;

private:
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
    template <class... Arguments>
    static NTSTATUS answer(NTSTATUS status, const char* function, Arguments... arguments)
    {
        std::string all;
        ((all += (all.empty() ? "" : ", ") + text(arguments)), ...);
        recorder->writeDown(std::string(function) + "(" + all + ") = " + std::to_string(status));
        return status;
    }

    static NTSTATUS WINAPI registerProvider(LPCWSTR provider, ULONG flags, CRYPT_PROVIDER_REG* record)
    {
        return answer(registerStatus, "BCryptRegisterProvider", provider, flags, record);
    }
    static NTSTATUS WINAPI unregisterProvider(LPCWSTR provider)
    {
        return answer(otherStatus, "BCryptUnregisterProvider", provider);
    }
    static NTSTATUS WINAPI addProvider(ULONG table, LPCWSTR context, ULONG face, LPCWSTR function, LPCWSTR provider, ULONG place)
    {
        return answer(addStatus, "BCryptAddContextFunctionProvider", table, context, face, function, provider, place);
    }
    static NTSTATUS WINAPI removeProvider(ULONG table, LPCWSTR context, ULONG face, LPCWSTR function, LPCWSTR provider)
    {
        return answer(otherStatus, "BCryptRemoveContextFunctionProvider", table, context, face, function, provider);
    }
};

constexpr NTSTATUS accessDenied = static_cast<NTSTATUS>(0xC0000022);

} // namespace

class SelfRegistrationTranscript : public Scenario {
protected:
    void record(const char* name, HRESULT (*call)(CngLibrary&), const char* missing)
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

TEST_F(SelfRegistrationTranscript, EarlierRegistrationIsTakenBackFirstWhateverThatAnswers)
{
    FakeCngLibrary::otherStatus = accessDenied;
    registers();
    unregisters();
}

TEST_F(SelfRegistrationTranscript, MissingFunctionIsFoundBeforeAnythingIsChanged)
{
    errorsAlone();
    for (const char* name : {"BCryptRegisterProvider", "BCryptUnregisterProvider", "BCryptAddContextFunctionProvider"})
        registers(name);
    recorder.note("one that is not needed");
    for (const char* name : {"BCryptRemoveContextFunctionProvider", "BCryptUnregisterProvider"}) unregisters(name);
    registers("BCryptRemoveContextFunctionProvider");
}

TEST_F(SelfRegistrationTranscript, FailureComesBackAsAResultAndInDecimalInTheLog)
{
    errorsAlone();
    FakeCngLibrary::registerStatus = accessDenied;
    registers();
    everyLine();
    FakeCngLibrary::registerStatus = 0;
    FakeCngLibrary::addStatus = 5;
    registers();
}

TEST_F(SelfRegistrationTranscript, LibraryThatCanNotBeLoadedIsNotFreed)
{
    cng.loads = false;
    registers();
    unregisters();
}

} // namespace quelta::test
