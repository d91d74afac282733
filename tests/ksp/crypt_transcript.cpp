#include "ksp/key.h"
#include "ksp/ksp_scenario.h"

#include <array>
#include <stdexcept>
#include <thread>

namespace quelta::test {

class KspCryptTranscript : public KspScenario {
protected:
    void encrypt(Key key, DWORD size, DWORD flags = 0) { ksp("KSPEncrypt", {key, Bytes{1, 2, 3}, room(size), flags}); }
    void decrypt(Key key, const Place& place, DWORD flags = 0) { ksp("KSPDecrypt", {key, counting(32), place, flags}); }
    void sign(Key key, DWORD size, DWORD flags = 0) { ksp("KSPSignHash", {key, counting(32), room(size), flags}); }
    void useEach(Key key, Key symmetric, DWORD flags = 0)
    {
        encrypt(key, 256, flags);
        for (const auto handle : {key, symmetric}) decrypt(handle, room(64), flags);
        sign(key, 128, flags);
    }
};

TRANSCRIPT(KspCryptTranscript, "data is encrypted with the key in DER")
{
    token.openSingleSignOn();
    const auto key = withKey(algorithmRsa2048);
    ksp("KSPEncrypt", {key, KspCalls::null, query(7)});
    encrypt(key, 300, NCRYPT_PAD_PKCS1_FLAG);
    cachePin();
    encrypt(withKey(algorithmP256), 256);
    errorsAlone();
    recorder.note("size and padding are told by their numbers");
    token.cipher.bytes = counting(3, 0xC1);
    encrypt(withKey(algorithmRsa1024), 128, NCRYPT_PAD_OAEP_FLAG);
    encrypt(withKey(algorithmRsa3072), 384, NCRYPT_PAD_OAEP_FLAG | NCRYPT_PAD_PKCS1_FLAG);
    encrypt(withKey(algorithmRsa4096), 512, BCRYPT_PAD_PSS);
    recorder.note("a cipher that is longer than the key has no room");
    everyLine();
    token.cipher.bytes = counting(1024);
    encrypt(key, 300);
}

TRANSCRIPT(KspCryptTranscript, "the signature stays as the token gives it")
{
    const auto curve = withKey(algorithmP521, usageSigning);
    ksp("KSPSignHash", {curve, KspCalls::null, query(7)});
    token.openSingleSignOn();
    token.signature.bytes = counting(132);
    sign(curve, 140, BCRYPT_PAD_PKCS1);
    errorsAlone();
    sign(curve, 64);
    everyLine();
    recorder.note("a signature is verified with the key's algorithm and its public key in DER");
    ksp("KSPVerifySignature", {withKey(algorithmRsa3072), counting(32), counting(384), BCRYPT_PAD_PSS});
    ksp("KSPVerifySignature", {withKey(algorithmP384), counting(48), counting(96)});
    setPublicKey(token.keyPairs[1], {});
    ksp("KSPVerifySignature", {opened(token.keyPairs[1]), Bytes{1}, Bytes{2}});
}

TRANSCRIPT(KspCryptTranscript, "a symmetric key decrypts with the shared vector in CBC only")
{
    const auto key = clearKey(counting(16));
    cachePin();
    ksp("KSPSetKeyProperty", {key, L"IV", counting(16, 0xA0)});
    token.symmetricPlain.bytes = counting(20);
    decrypt(key, room(20));
    recorder.note("asking for the size decrypts, and a short buffer is written down as none");
    ksp("KSPSetKeyProperty", {key, L"ChainingMode", wideBytes(L"ChainingModeECB")});
    for (const Place& place : {query(), room(19)}) decrypt(key, place);
    errorsAlone();
    recorder.note("a key that the token holds is taken for a key pair");
    const auto stored = ksp("KSPImportKey", {0, L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 16}), counting(16)}), 64});
    for (const Place& place : {query(), room(10)}) decrypt(stored, place);
}

TRANSCRIPT(KspCryptTranscript, "a silent call needs a validated PIN, and PSS is refused only after that")
{
    const auto key = withKey(algorithmRsa1024), symmetric = clearKey(counting(16));
    ksp("KSPDecrypt", {key, KspCalls::null, query()});
    ksp("KSPDecrypt", {symmetric, KspCalls::null, query()});
    ksp("KSPEncrypt", {key, KspCalls::null, room(127)});
    recorder.note("an open sign-on does not count until another call has found it");
    token.openSingleSignOn();
    useEach(key, symmetric, NCRYPT_SILENT_FLAG | BCRYPT_PAD_PSS);
    errorsAlone();
    ksp("KSPPromptUser");
    sign(key, 128, NCRYPT_SILENT_FLAG);
    tokenState().pinCache.clear();
    token.info.singleSignOnOpen = 0;
    user.entersPin("1234");
    for (const DWORD flags : {BCRYPT_PAD_PSS, BCRYPT_PAD_PSS | BCRYPT_PAD_PKCS1}) sign(key, 128, flags);
    encrypt(key, 256, NCRYPT_SILENT_FLAG);
}

TRANSCRIPT(KspCryptTranscript, "an expired sign-on is renewed once")
{
    token.withKeyPair(usageBoth, algorithmRsa1024).hardware = 1;
    const auto key = opened(token.keyPairs[0]);
    const auto expires = [&](Call call) {
        everyLine();
        cachePin("old pin");
        token.willAnswer(call, 49);
        user.entersPin("1234");
    };
    expires(Call::decrypt);
    decrypt(key, room(12));
    expires(Call::signHash);
    sign(key, 128);
    errorsAlone();
    for (int i = 0; i < 3; ++i) token.willAnswer(Call::signHash, 49);
    user.entersPin("1234");
    user.cancels();
    for (int i = 0; i < 2; ++i) sign(key, 128);
    recorder.note("no PIN is left");
    sign(key, 128, NCRYPT_SILENT_FLAG);
    recorder.note("the user cancels");
    const auto symmetric = clearKey(counting(16));
    for (int i = 0; i < 4; ++i) user.cancels();
    useEach(key, symmetric);
}

using KspSilentCall = ModuleTest;

// The device monitor may clear the PIN at any moment.
TEST_F(KspSilentCall, NeverAsksForAPinThatIsClearedMeanwhile)
{
    setLogLevel(0);
    ULONG_PTR provider = 0, key = 0;
    const std::wstring name = wideKeyName(token.withKeyPair(usageBoth, algorithmRsa1024));
    kspSlot("KSPOpenProvider")({addressOf(&provider)});
    kspSlot("KSPOpenKey")({provider, addressOf(&key), addressOf(name.c_str())});
    bool asked = false;
    token.during(Call::getTokenInfo, [&] {
        asked = true;
        throw std::runtime_error("no prompt here");
    });
    std::array<BYTE, 256> room{};
    const ULONG_PTR data = addressOf(room.data());
    DWORD length = 0;
    int served = 0;
    constexpr int rounds = 20000;
    const std::jthread clearing([](const std::stop_token& stop) {
        for (; !stop.stop_requested(); tokenState().pinCache.clear()) cachePin();
    });
    for (int round = 0; round < rounds; ++round, token.takeCalls())
        served +=
            kspSlot("KSPEncrypt")({provider, key, data, 1, 0, data, room.size(), addressOf(&length), NCRYPT_SILENT_FLAG}) == 0;
    EXPECT_FALSE(asked);
    EXPECT_TRUE(served > 0 && served < rounds) << served;
}

} // namespace quelta::test
