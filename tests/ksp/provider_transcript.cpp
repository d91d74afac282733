#include "ksp/ksp_scenario.h"

#include "ksp/provider.h"

namespace quelta::test {

class KspProviderTranscript : public KspScenario {
protected:
    KspProviderTranscript() : KspScenario(false) {}
};

TRANSCRIPT(KspProviderTranscript, "the first opening starts the library and opens the first token")
{
    token.connect({"TOKEN-2", "TOKEN-1"});
    token.openSingleSignOn();
    ksp.openProvider(L"any name", 64);
    ksp("KSPPromptUser");
    recorder.note("another is opened without a further start, on the token that is first by now");
    token.connect({"TOKEN-1"});
    ksp.openProvider(nullptr);
    errorsAlone();
    ksp("KSPPromptUser");
    ksp("KSPFreeProvider");
}

TRANSCRIPT(KspProviderTranscript, "properties are known by their whole names, and one is refused without a line")
{
    open();
    for (const LPCWSTR name : {L"Name", L"name", L"Use Count"}) ksp("KSPGetProviderProperty", {name, query(7), 64});
    errorsAlone();
    for (const LPCWSTR name :
         {L"Name", L"Impl Type", L"Version", L"Algorithm Name", L"Max Name Length", L"Security Descr Support", L"Name "}) {
        ksp("KSPGetProviderProperty", {name, room(70)});
    }
}

TRANSCRIPT(KspProviderTranscript, "a window that is too short clears it, except through a key")
{
    open();
    const auto key = withKey(algorithmRsa1024);
    for (const Input& value : {Input(counting(12)), Input(Bytes(7, 1)), Input()}) {
        ksp("KSPSetKeyProperty", {key, L"HWND Handle", value});
        recorder.note("the window is " + std::to_string(providerOf(ksp.provider)->hwnd));
        ksp("KSPSetProviderProperty", {L"HWND Handle", value});
        recorder.note("the window is " + std::to_string(providerOf(ksp.provider)->hwnd));
    }
    for (const LPCWSTR name : {L"hwnd handle", L"Name"}) ksp("KSPSetProviderProperty", {name, Bytes(8), 64});
    ksp("KSPSetKeyProperty", {key, L"Lengths", Bytes(16), 64});
}

TRANSCRIPT(KspProviderTranscript, "the PIN is read as narrow text, and kept only if it is right")
{
    open();
    const auto key = withKey(algorithmRsa1024);
    user.cancels();
    ksp("KSPPromptUser");
    for (const Input& pin : {Input(), Input(bytesOfText("1234")), Input(wideBytes(L"1234"))}) {
        ksp("KSPSetProviderProperty", {L"SmartCardPin", pin});
        ksp("KSPSetKeyProperty", {key, L"SmartCardPin", pin});
    }
    ksp("KSPPromptUser", {64});
    recorder.note("cached is " + cachedPin());
    errorsAlone();
    tokenState().pinCache.clear();
    token.willAnswerPin(48, 0);
    user.entersPin("1234");
    user.acknowledges();
    user.entersPin("1234");
    for (int i = 0; i < 2; ++i) ksp("KSPPromptUser");
}

} // namespace quelta::test
