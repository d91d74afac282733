#include "support/module_test.h"

#include "register/self_registration.h"

#include <ncrypt.h>

#include <gmock/gmock.h>

#include <set>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;

std::string narrow(const wchar_t* text)
{
    std::string result;
    for (; text && *text; ++text) result += static_cast<char>(*text);
    return result;
}

// A bcrypt.dll that lacks what a test says, answers what it says, and records what it is asked.
class FakeCngLibrary final : public CngLibrary {
public:
    FakeCngLibrary()
    {
        calls = {};
        registerStatus = addStatus = otherStatus = 0;
    }

    bool load() override
    {
        calls.emplace_back("load");
        return loads;
    }
    FARPROC find(const char* function) override
    {
        const std::string name = function;
        if (missing.contains(name)) return nullptr;
        if (name == "BCryptRegisterProvider") return address(&registerProvider);
        if (name == "BCryptUnregisterProvider") return address(&unregisterProvider);
        if (name == "BCryptAddContextFunctionProvider") return address(&addProvider);
        if (name == "BCryptRemoveContextFunctionProvider") return address(&removeProvider);
        ADD_FAILURE() << "There is no " << name;
        return nullptr;
    }
    void free() override { calls.emplace_back("free"); }

    bool loads = true;
    std::set<std::string> missing;

    // The functions have no object to belong to.
    static inline std::vector<std::string> calls;
    static inline NTSTATUS registerStatus;
    static inline NTSTATUS addStatus;
    static inline NTSTATUS otherStatus;

private:
    template <class Function>
    static FARPROC address(Function* function)
    {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
    }

    static std::string describe(const CRYPT_PROVIDER_REG& record)
    {
        const CRYPT_IMAGE_REG& image = *record.pUM;
        const CRYPT_INTERFACE_REG& face = *image.rgpInterfaces[0];
        return std::to_string(record.cAliases) + (record.rgpszAliases || record.pKM ? " and more" : "") + ", " +
               narrow(image.pszImage) + ", " + std::to_string(image.cInterfaces) + ", " + std::to_string(face.dwInterface) +
               ", " + std::to_string(face.dwFlags) + ", " + std::to_string(face.cFunctions) + ", " +
               narrow(face.rgpszFunctions[0]);
    }
    static std::string place(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR provider)
    {
        return std::to_string(table) + (context ? ", in a context, " : ", ") + std::to_string(interfaceId) + ", " +
               narrow(function) + ", " + narrow(provider);
    }

    static NTSTATUS WINAPI registerProvider(LPCWSTR provider, ULONG flags, CRYPT_PROVIDER_REG* record)
    {
        calls.push_back("register " + narrow(provider) + ", " + std::to_string(flags) + ": " + describe(*record));
        return registerStatus;
    }
    static NTSTATUS WINAPI unregisterProvider(LPCWSTR provider)
    {
        calls.push_back("unregister " + narrow(provider));
        return otherStatus;
    }
    static NTSTATUS WINAPI addProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR provider,
                                       ULONG position)
    {
        calls.push_back("add " + place(table, context, interfaceId, function, provider) + ", " + std::to_string(position));
        return addStatus;
    }
    static NTSTATUS WINAPI removeProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR provider)
    {
        calls.push_back("remove " + place(table, context, interfaceId, function, provider));
        return otherStatus;
    }
};

constexpr const char removal[] = "remove 1, 65537, KEY_STORAGE, Quelta Cryptographic Provider CSP";
constexpr const char unregistration[] = "unregister Quelta Cryptographic Provider CSP";
constexpr const char registration[] =
    "register Quelta Cryptographic Provider CSP, 0: 0, QueltaCSP.dll, 1, 65537, 1, 1, KEY_STORAGE";
constexpr const char addition[] = "add 1, 65537, KEY_STORAGE, Quelta Cryptographic Provider CSP, 4294967295";

const LogLine registering = debug("DllRegisterServer: Registering KSP via CNG API");
const LogLine registered = debug("DllRegisterServer: KSP registered successfully");
const LogLine unregistering = debug("DllUnregisterServer: Unregistering KSP via CNG API");
const LogLine unregistered = debug("DllUnregisterServer: KSP unregistered successfully");

constexpr NTSTATUS accessDenied = static_cast<NTSTATUS>(0xC0000022);

} // namespace

class SelfRegistration : public ModuleTest {
protected:
    FakeCngLibrary cng;
};

TEST_F(SelfRegistration, EarlierRegistrationIsTakenBackFirstWhateverThatAnswers)
{
    FakeCngLibrary::otherStatus = accessDenied;
    EXPECT_EQ(registerProvider(cng), S_OK);
    EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", removal, unregistration, registration, addition, "free"));
    expectLog({registering, registered});
}

TEST_F(SelfRegistration, LibraryThatCannotRemoveStillRegisters)
{
    cng.missing = {"BCryptRemoveContextFunctionProvider"};
    EXPECT_EQ(registerProvider(cng), S_OK);
    EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", unregistration, registration, addition, "free"));
    expectLog({registering, registered});
}

TEST_F(SelfRegistration, MissingFunctionIsFoundBeforeAnythingIsChanged)
{
    for (const char* name : {"BCryptRegisterProvider", "BCryptUnregisterProvider", "BCryptAddContextFunctionProvider"}) {
        FakeCngLibrary library;
        library.missing = {name};
        EXPECT_EQ(registerProvider(library), E_FAIL) << name;
        EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", "free")) << name;
        expectLog({registering, error("Failed to find BCrypt registration functions")});
    }
}

TEST_F(SelfRegistration, LibraryThatIsNotThereIsNotFreed)
{
    cng.loads = false;
    EXPECT_EQ(registerProvider(cng), E_FAIL);
    expectLog({registering, error("Failed to load bcrypt.dll")});
    EXPECT_EQ(unregisterProvider(cng), E_FAIL);
    expectLog({unregistering});
    EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", "load"));
}

TEST_F(SelfRegistration, FailureComesBackAsResultAndInDecimalInTheLog)
{
    FakeCngLibrary::registerStatus = accessDenied;
    EXPECT_EQ(registerProvider(cng), static_cast<HRESULT>(0xD0000022));
    EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", removal, unregistration, registration, "free"));
    expectLog({registering, error("BCryptRegisterProvider failed: 0x-1073741790")});

    FakeCngLibrary library;
    FakeCngLibrary::addStatus = 5;
    EXPECT_EQ(registerProvider(library), static_cast<HRESULT>(0x10000005)) << "any status but 0 is a failure";
    EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", removal, unregistration, registration, addition, "free"));
    expectLog({registering, error("BCryptAddContextFunctionProvider failed: 0x5")});
}

TEST_F(SelfRegistration, UnregisteringTakesBackWhatItCan)
{
    FakeCngLibrary::otherStatus = accessDenied;
    EXPECT_EQ(unregisterProvider(cng), S_OK);
    EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", removal, unregistration, "free"));
    expectLog({unregistering, unregistered});

    const std::pair<const char*, const char*> rows[] = {{"BCryptRemoveContextFunctionProvider", unregistration},
                                                        {"BCryptUnregisterProvider", removal}};
    for (const auto& [missing, done] : rows) {
        FakeCngLibrary library;
        library.missing = {missing};
        EXPECT_EQ(unregisterProvider(library), S_OK);
        EXPECT_THAT(FakeCngLibrary::calls, ElementsAre("load", done, "free"));
        expectLog({unregistering, unregistered});
    }
}

} // namespace quelta::test
