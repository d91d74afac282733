#include "ksp/ksp_scenario.h"

#include "token/record_fields.h"

namespace quelta::test {

class KspKeyPropertiesTranscript : public KspScenario {
protected:
    void set(Key key, LPCWSTR name, std::initializer_list<Input> values)
    {
        for (const Input& value : values) ksp("KSPSetKeyProperty", {key, name, value});
    }
    void getCertificate(Key key) { ksp("KSPGetKeyProperty", {key, L"SmartCardKeyCertificate", room(16)}); }
    void noteVector() { recorder.note("the vector is " + words(*tokenState().sharedIv.bytes())); }
};

TRANSCRIPT(KspKeyPropertiesTranscript, "each property is known by its whole name, and one is refused without a line")
{
    const auto key = withKey(algorithmRsa3072);
    const DWORD low = static_cast<DWORD>(ksp.provider), high = static_cast<DWORD>(ksp.provider >> 32);
    recorder.call(littleEndian({low, high}), recorder.handle(ksp.provider));
    ksp("KSPGetKeyProperty", {key, L"Name", query(7), 64});
    get(key, {L"length", L"Length ", L"Security Descr"});
    errorsAlone();
    get(key, {L"Name", L"Algorithm Name", L"Algorithm Group", L"Length", L"Lengths", L"Key Usage", L"Export Policy",
              L"Block Length", L"Key Type", L"Unique Name", L"Provider Handle", L"ChainingMode"});
    const std::pair<std::uint32_t, std::uint32_t> others[] = {
        {algorithmP256, usageSigning}, {algorithmP384, usageKeyExchange}, {algorithmP521, usageBoth}, {8, 4}};
    for (const auto& [algorithm, usage] : others) {
        get(withKey(algorithm, usage), {L"Algorithm Name", L"Algorithm Group", L"Length", L"Key Usage"});
    }
    get(withKey(algorithmP521), {L"Lengths", L"Block Length"});
}

TRANSCRIPT(KspKeyPropertiesTranscript, "the certificate is found by what belongs to the key, else by its public key")
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setText(pair.label, "mine");
    token.withCertificate(Bytes{1});
    token.detailsGive(Bytes{1}, {publicKeyOf(pair).begin(), publicKeyOf(pair).end()});
    auto& labelled = token.withCertificate(Bytes{2});
    setText(labelled.label, "mine");
    const auto key = opened(pair);
    getCertificate(key);
    errorsAlone();
    setText(labelled.label, "of another");
    getCertificate(key);
    recorder.note("a key without a public key has none in common with a certificate without one");
    setPublicKey(pair, {});
    token.detailsGive(Bytes{2}, {});
    labelled.certificateLength = 1;
    getCertificate(opened(pair));
}

TRANSCRIPT(KspKeyPropertiesTranscript, "a certificate goes to the token with all that identifies its key")
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setText(pair.label, std::string(128, 'L'));
    const auto key = opened(pair);
    recorder.note("what can't be stored is refused before the PIN is asked for");
    set(key, L"SmartCardKeyCertificate", {KspCalls::null, Bytes(), counting(3073)});
    cachePin();
    set(key, L"SmartCardKeyCertificate", {counting(3072)});
    errorsAlone();
    tokenState().pinCache.clear();
    user.cancels();
    set(key, L"SmartCardKeyCertificate", {Bytes{0x30}});
}

TRANSCRIPT(KspKeyPropertiesTranscript, "short inputs change nothing and are no failure")
{
    const auto key = ksp("KSPCreatePersistedKey", {L"RSA", nullptr});
    set(key, L"Length", {littleEndian({123456789}), Bytes(3), KspCalls::null});
    errorsAlone();
    get(key, {L"Length"});
    for (const std::uint32_t value : {1U, 0x102U, 0xFFFFFFFFU, 0xFFFFFFFCU}) {
        set(key, L"Key Usage", {littleEndian({value})});
        get(key, {L"Key Usage"});
    }
    set(key, L"Key Usage", {Bytes{1, 0, 0}, KspCalls::null});
    get(key, {L"Key Usage"});
}

TRANSCRIPT(KspKeyPropertiesTranscript, "the chaining mode is read up to its zero or its end")
{
    const auto key = withKey(algorithmRsa1024);
    const auto unended = [this](std::wstring_view text) {
        const Bytes bytes = GuardedBuffer(wideBytes(text)).first(text.size() * 2);
        recorder.call(bytes, "L\"" + std::string(text.begin(), text.end()) + "\"");
        return bytes;
    };
    set(key, L"ChainingMode", {wideBytes(L"ChainingModeECB"), unended(L"ChainingModeCBC"), unended(L"ChainingModeECB ")});
    errorsAlone();
    set(key, L"ChainingMode", {KspCalls::null, Bytes(), unended(L"ChainingModeEC"), Bytes{'E'}});
    get(key, {L"ChainingMode"});
    recorder.note("an odd byte at the end does not count");
    set(key, L"ChainingMode", {concat({unended(L"ChainingModeECB"), Bytes{0}})});
    get(key, {L"ChainingMode"});
}

TRANSCRIPT(KspKeyPropertiesTranscript, "the vector must fit the key's cipher if that is known")
{
    const auto aes128 = clearKey(counting(16)), aes256 = clearKey(counting(32)), middle = clearKey(counting(24));
    set(aes128, L"IV", {counting(16), counting(8)});
    noteVector();
    set(middle, L"IV", {KspCalls::null});
    noteVector();
    errorsAlone();
    set(aes256, L"IV", {counting(17), counting(16)});
    set(middle, L"IV", {counting(16), counting(8)});
    noteVector();
    recorder.note("any length for a key that is not in clear");
    set(withKey(algorithmRsa1024), L"IV", {counting(100)});
    noteVector();
}

} // namespace quelta::test
