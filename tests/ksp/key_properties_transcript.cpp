#include "ksp/ksp_scenario.h"
#include "token/record_fields.h"

#include "ksp/provider.h"

namespace quelta::test {

class KspKeyPropertiesTranscript : public KspScenario {
protected:
    KspKeyPropertiesTranscript() { open(); }

    void get(NCRYPT_KEY_HANDLE key, std::initializer_list<LPCWSTR> names)
    {
        for (const LPCWSTR name : names) ksp.getKeyProperty(key, name, room(66));
    }
    void getCertificate(NCRYPT_KEY_HANDLE key) { ksp.getKeyProperty(key, L"SmartCardKeyCertificate", room(16)); }
    void setAll(NCRYPT_KEY_HANDLE key, LPCWSTR name, std::initializer_list<Input> values)
    {
        for (const Input& value : values) ksp.setKeyProperty(key, name, value);
    }
    NCRYPT_KEY_HANDLE anyKey() { return opened(token.withKeyPair(usageBoth, algorithmRsa1024)); }
};

TEST_F(KspKeyPropertiesTranscript, EachIsAnsweredWhereThereIsRoom)
{
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa3072));
    const DWORD low = static_cast<DWORD>(ksp.provider), high = static_cast<DWORD>(ksp.provider >> 32);
    recorder.call(littleEndian({low, high}), recorder.handle(ksp.provider));
    ksp.getKeyProperty(key, L"Name", query(7), 64);
    errorsAlone();
    for (const DWORD size : {0, 65}) ksp.getKeyProperty(key, L"Name", room(size));
    get(key, {L"Name", L"Algorithm Name", L"Algorithm Group", L"Length", L"Lengths", L"Key Usage", L"Export Policy",
              L"Block Length", L"Key Type", L"Unique Name", L"Provider Handle", L"ChainingMode"});
}

TEST_F(KspKeyPropertiesTranscript, OnlyWholeNamesAreKnownAndOneIsRefusedWithoutAWord)
{
    get(anyKey(), {L"length", L"Length ", L"Security Descr"});
}

TEST_F(KspKeyPropertiesTranscript, EllipticKeysAndUnknownOnes)
{
    errorsAlone();
    get(opened(token.withKeyPair(usageSigning, algorithmP256)), {L"Algorithm Name", L"Algorithm Group", L"Length", L"Key Usage"});
    get(opened(token.withKeyPair(usageSigning, algorithmP384)), {L"Algorithm Name", L"Algorithm Group", L"Length"});
    get(opened(token.withKeyPair(usageKeyExchange, algorithmP521)),
        {L"Algorithm Name", L"Algorithm Group", L"Length", L"Block Length", L"Key Usage", L"Lengths"});
    get(opened(token.withKeyPair(4, 8)), {L"Algorithm Name", L"Algorithm Group", L"Length", L"Key Usage"});
}

TEST_F(KspKeyPropertiesTranscript, CertificateIsTheFirstOfTheLabelOrTheReference)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setText(pair.label, "mine");
    token.withCertificate(Bytes{1});
    token.detailsGive(Bytes{1}, {publicKeyOf(pair).begin(), publicKeyOf(pair).end()});
    auto& labelled = token.withCertificate(Bytes{2});
    setText(labelled.label, "mine");
    auto& referred = token.withCertificate(Bytes{3});
    setReference(referred, keyReferenceOf(pair));
    const auto key = opened(pair);
    errorsAlone();
    getCertificate(key);
    setText(labelled.label, "of another");
    getCertificate(key);
    recorder.note("else the first that has the key's public key");
    setReference(referred, Bytes{9});
    getCertificate(key);
}

TEST_F(KspKeyPropertiesTranscript, CertificateIsLookedForOnAFreshlyOpenedTokenWhateverThatAnswers)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    token.withCertificate(counting(40)).certificateLength = 3073;
    token.withCertificate(counting(5));
    const auto key = opened(pair);
    token.willAnswer(Call::initDevice, 21);
    ksp.getKeyProperty(key, L"SmartCardKeyCertificate", query());
    errorsAlone();
    recorder.note("a key without a public key has none in common with a certificate without one");
    setPublicKey(pair, {});
    token.detailsGive(counting(5), {});
    getCertificate(opened(pair));
}

TEST_F(KspKeyPropertiesTranscript, CertificateGoesToTheTokenWithAllThatTellsItsKey)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setText(pair.label, std::string(128, 'L'));
    const auto key = opened(pair);
    recorder.note("what can't be stored is refused before the PIN is asked for");
    setAll(key, L"SmartCardKeyCertificate", {KspCalls::null, Bytes(), counting(3073)});
    cachePin();
    setAll(key, L"SmartCardKeyCertificate", {counting(3072)});
}

TEST_F(KspKeyPropertiesTranscript, PINOfAKeyIsTheOneOfTheProvider)
{
    const auto key = anyKey();
    setAll(key, L"SmartCardPin", {KspCalls::null, bytesOfText("1234"), wideBytes(L"1234")});
    recorder.note("cached is " + cachedPin());
}

TEST_F(KspKeyPropertiesTranscript, ShortInputsChangeNothingAndAreNoFailure)
{
    const auto key = created(L"RSA");
    setAll(key, L"Length", {littleEndian({123456789}), Bytes(3), KspCalls::null});
    errorsAlone();
    ksp.getKeyProperty(key, L"Length", room(4));
    setAll(key, L"HWND Handle", {counting(8), Bytes(7), KspCalls::null});
    recorder.note("the window is " + std::to_string(providerOf(ksp.provider)->hwnd));
    for (const Bytes& value : {littleEndian({1}), littleEndian({0x102}), littleEndian({0xFFFFFFFF})}) {
        setAll(key, L"Key Usage", {value, Bytes{1, 0, 0}, littleEndian({0xFFFFFFFC}), KspCalls::null});
        ksp.getKeyProperty(key, L"Key Usage", room(4));
    }
}

TEST_F(KspKeyPropertiesTranscript, ChainingModeIsReadUpToItsZeroOrItsEnd)
{
    const auto key = anyKey();
    const auto unended = [this](std::wstring_view text) {
        const Bytes bytes = GuardedBuffer(wideBytes(text)).first(text.size() * 2);
        recorder.call(bytes, "L\"" + std::string(text.begin(), text.end()) + "\"");
        return bytes;
    };
    setAll(key, L"ChainingMode", {wideBytes(L"ChainingModeECB"), unended(L"ChainingModeCBC"), unended(L"ChainingModeECB ")});
    errorsAlone();
    setAll(key, L"ChainingMode", {KspCalls::null, Bytes(), unended(L"ChainingModeEC"), Bytes{'E'}});
    get(key, {L"ChainingMode"});
    recorder.note("an odd byte at the end does not count");
    setAll(key, L"ChainingMode", {concat({unended(L"ChainingModeECB"), {0}})});
    get(key, {L"ChainingMode"});
    setAll(key, L"chainingmode", {wideBytes(L"ChainingModeCBC")});
}

TEST_F(KspKeyPropertiesTranscript, VectorMustFitTheCipherOfTheKeyWhereThatIsKnown)
{
    cachePin();
    const auto aes128 = clearKey(counting(16)), aes256 = clearKey(counting(32)), middle = clearKey(counting(24));
    const auto noteVector = [this] { recorder.note("the vector is " + words(*tokenState().sharedIv.bytes())); };
    setAll(aes128, L"IV", {counting(16), counting(8)});
    noteVector();
    setAll(middle, L"IV", {KspCalls::null});
    noteVector();
    errorsAlone();
    setAll(aes256, L"IV", {counting(17), counting(16)});
    setAll(middle, L"IV", {counting(16), counting(8)});
    noteVector();
    recorder.note("any length for a key that is not in clear");
    setAll(anyKey(), L"IV", {counting(100)});
    noteVector();
    setAll(anyKey(), L"IV", {Bytes()});
    noteVector();
}

TEST_F(KspKeyPropertiesTranscript, AtLevelTwoErrorsAlone)
{
    const auto key = anyKey();
    errorsAlone();
    user.cancels();
    setAll(key, L"SmartCardKeyCertificate", {Bytes{0x30}});
    cachePin();
    token.willAnswer(Call::importCertificate, 8);
    setAll(key, L"SmartCardKeyCertificate", {Bytes{0x30}});
    setAll(key, L"SmartCardPin", {bytesOfText("9")});
    setAll(key, L"Lengths", {Bytes(16)});
    get(key, {L"no property"});
}

} // namespace quelta::test
