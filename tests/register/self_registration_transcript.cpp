#include "support/scenario.h"

#include "register/self_registration.h"

#include <ncrypt.h>

#include <set>

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
        const std::string name = function;
        if (missing.contains(name)) {
            recorder->writeDown("it has no " + name);
            return nullptr;
        }
        if (name == "BCryptRegisterProvider") return address(&registerProvider);
        if (name == "BCryptUnregisterProvider") return address(&unregisterProvider);
        if (name == "BCryptAddContextFunctionProvider") return address(&addProvider);
        if (name == "BCryptRemoveContextFunctionProvider") return address(&removeProvider);
        ADD_FAILURE() << "There is no " << name;
        return nullptr;
    }
    void free() override { recorder->writeDown("bcrypt.dll is freed"); }

    bool loads = true;
    std::set<std::string> missing;

    // The functions have no object to belong to.
    static inline Recorder* recorder;
    static inline NTSTATUS registerStatus;
    static inline NTSTATUS addStatus;
    static inline NTSTATUS otherStatus;

private:
    template <class Function>
    static FARPROC address(Function* function)
    {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
    }

    static NTSTATUS answer(const std::string& call, NTSTATUS status)
    {
        recorder->writeDown(call + " = " + std::to_string(status));
        return status;
    }

    static std::string words(const CRYPT_PROVIDER_REG& record)
    {
        const CRYPT_IMAGE_REG& image = *record.pUM;
        const CRYPT_INTERFACE_REG& face = *image.rgpInterfaces[0];
        return std::to_string(record.cAliases) + " aliases" + (record.rgpszAliases ? " listed" : "") +
               (record.pKM ? ", a kernel's image" : "") + ", " + quoted(image.pszImage) + " with " +
               std::to_string(image.cInterfaces) + " interface " + std::to_string(face.dwInterface) + " flags " +
               std::to_string(face.dwFlags) + " with " + std::to_string(face.cFunctions) + " function " +
               quoted(face.rgpszFunctions[0]);
    }
    static std::string place(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR provider)
    {
        return std::to_string(table) + ", " + quoted(context) + ", " + std::to_string(interfaceId) + ", " + quoted(function) +
               ", " + quoted(provider);
    }

    static NTSTATUS WINAPI registerProvider(LPCWSTR provider, ULONG flags, CRYPT_PROVIDER_REG* record)
    {
        return answer("BCryptRegisterProvider(" + quoted(provider) + ", " + std::to_string(flags) + ", " + words(*record) + ")",
                      registerStatus);
    }
    static NTSTATUS WINAPI unregisterProvider(LPCWSTR provider)
    {
        return answer("BCryptUnregisterProvider(" + quoted(provider) + ")", otherStatus);
    }
    static NTSTATUS WINAPI addProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR provider,
                                       ULONG position)
    {
        return answer("BCryptAddContextFunctionProvider(" + place(table, context, interfaceId, function, provider) + ", " +
                          std::to_string(position) + ")",
                      addStatus);
    }
    static NTSTATUS WINAPI removeProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR provider)
    {
        return answer("BCryptRemoveContextFunctionProvider(" + place(table, context, interfaceId, function, provider) + ")",
                      otherStatus);
    }
};

constexpr NTSTATUS accessDenied = static_cast<NTSTATUS>(0xC0000022);

std::string resultText(HRESULT result)
{
    const auto value = static_cast<std::uint32_t>(result);
    const Bytes bytes = reversed(littleEndian({value}));
    return result == S_OK ? "S_OK" : result == E_FAIL ? "E_FAIL" : "0x" + hexOf(bytes);
}

} // namespace

class SelfRegistrationTranscript : public Scenario {
protected:
    void registers()
    {
        recorder.recordInner("DllRegisterServer", "", [this] { return resultText(registerProvider(cng)); });
    }
    void unregisters()
    {
        recorder.recordInner("DllUnregisterServer", "", [this] { return resultText(unregisterProvider(cng)); });
    }
    void lacks(const char* function) { cng.missing = {function}; }

    FakeCngLibrary cng{recorder};
};

TEST_F(SelfRegistrationTranscript, EarlierRegistrationIsTakenBackFirstWhateverThatAnswers)
{
    FakeCngLibrary::otherStatus = accessDenied;
    registers();
}

TEST_F(SelfRegistrationTranscript, MissingFunctionIsFoundBeforeAnythingIsChanged)
{
    for (const char* name : {"BCryptRegisterProvider", "BCryptUnregisterProvider", "BCryptAddContextFunctionProvider"}) {
        lacks(name);
        registers();
    }
    recorder.note("one that is not needed");
    lacks("BCryptRemoveContextFunctionProvider");
    registers();
}

TEST_F(SelfRegistrationTranscript, FailureComesBackAsAResultAndInDecimalInTheLog)
{
    FakeCngLibrary::registerStatus = accessDenied;
    registers();
    FakeCngLibrary::registerStatus = 0;
    FakeCngLibrary::addStatus = 5;
    registers();
}

TEST_F(SelfRegistrationTranscript, UnregisteringTakesBackWhatItCan)
{
    FakeCngLibrary::otherStatus = accessDenied;
    unregisters();
    lacks("BCryptRemoveContextFunctionProvider");
    unregisters();
    lacks("BCryptUnregisterProvider");
    unregisters();
}

TEST_F(SelfRegistrationTranscript, LibraryThatCanNotBeLoadedIsNotFreed)
{
    cng.loads = false;
    registers();
    unregisters();
}

TEST_F(SelfRegistrationTranscript, AtLevelTwoErrorsAlone)
{
    errorsAlone();
    FakeCngLibrary::addStatus = accessDenied;
    registers();
    unregisters();
    cng.loads = false;
    registers();
    unregisters();
}

} // namespace quelta::test
