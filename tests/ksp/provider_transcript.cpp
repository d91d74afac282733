#include "ksp/ksp_scenario.h"

#include "ksp/provider.h"

namespace quelta::test {

class KspProviderTranscript : public KspScenario {
protected:
    void setWindow(const Input& value)
    {
        ksp.setProviderProperty(L"HWND Handle", value);
        recorder.note("the window is " + std::to_string(providerOf(ksp.provider)->hwnd));
    }
};

TEST_F(KspProviderTranscript, FirstOpeningStartsTheLibraryAndOpensTheFirstToken)
{
    token.connect({"TOKEN-2", "TOKEN-1"});
    token.openSingleSignOn();
    ksp.openProvider(L"any name", 64);
    ksp.promptUser(0, nullptr);
    token.connect({"TOKEN-1"});
    ksp.openProvider(nullptr);
    ksp.promptUser(0, nullptr);
    ksp.freeProvider();
}

TEST_F(KspProviderTranscript, LibraryIsStartedAgainUntilATokenHasBeenOpened)
{
    token.willAnswer(Call::init, 3);
    token.willAnswer(Call::initDevice, -21);
    ksp.openProvider();
    errorsAlone();
    ksp.openProvider();
}

TEST_F(KspProviderTranscript, PropertiesAreKnownByTheirWholeNamesAndOneIsRefusedWithoutAWord)
{
    open();
    for (const LPCWSTR name : {L"Name", L"name", L"Use Count"}) ksp.getProviderProperty(name, query(7), 64);
    errorsAlone();
    for (const DWORD size : {0, 67, 70}) ksp.getProviderProperty(L"Name", room(size));
    for (const LPCWSTR name : {L"Impl Type", L"Version", L"Algorithm Name", L"Max Name Length", L"Security Descr Support"}) {
        ksp.getProviderProperty(name, room(8));
    }
    for (const LPCWSTR name : {L"Name ", L""}) ksp.getProviderProperty(name, room(68));
}

TEST_F(KspProviderTranscript, WindowThatIsTooShortToBeOneClearsIt)
{
    open();
    setWindow(counting(12));
    setWindow(Bytes(7, 1));
    setWindow(counting(8));
    setWindow(KspCalls::null);
    for (const LPCWSTR name : {L"hwnd handle", L"Name"}) ksp.setProviderProperty(name, Bytes(8));
}

TEST_F(KspProviderTranscript, PINIsReadAsNarrowTextAndKeptOnlyIfItIsRight)
{
    open();
    ksp.setProviderProperty(L"SmartCardPin", KspCalls::null);
    ksp.setProviderProperty(L"SmartCardPin", bytesOfText("1234"));
    ksp.setProviderProperty(L"SmartCardPin", wideBytes(L"1234"));
    recorder.note("cached is " + cachedPin());
    ksp.promptUser(0, L"an operation", 64);
}

TEST_F(KspProviderTranscript, UserIsAskedUntilThePINIsRightOrThereIsNoMoreToTry)
{
    open();
    user.entersPin("1235");
    user.acknowledges();
    user.cancels();
    ksp.promptUser(0, nullptr);
    errorsAlone();
    for (const int result : {48, 5}) {
        token.willAnswerPin(result, 0);
        user.entersPin("1234");
        user.acknowledges();
        ksp.promptUser(0, nullptr);
    }
    user.entersPin("1234");
    ksp.promptUser(0, nullptr);
    ksp.promptUser(0, nullptr);
}

TEST_F(KspProviderTranscript, AtLevelTwoErrorsAlone)
{
    open();
    errorsAlone();
    token.unplug();
    ksp.openProvider();
    ksp.setProviderProperty(L"SmartCardPin", bytesOfText("9"));
}

} // namespace quelta::test
