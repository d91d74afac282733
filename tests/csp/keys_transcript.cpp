#include "csp/csp_scenario.h"

namespace quelta::test {

using KeysTranscript = CspScenario;

TRANSCRIPT(KeysTranscript, "the key spec must suit the usage until the container's name is asked for")
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    openContainerOf(pair);
    const auto ask = [&](std::uint32_t usage, DWORD keySpec) {
        pair.usage = usage;
        csp("CPGetUserKey", {keySpec});
    };
    ask(usageSigning, AT_KEYEXCHANGE);
    ask(usageKeyExchange, AT_SIGNATURE);
    ask(usageKeyExchange, AT_KEYEXCHANGE);
    ask(usageBoth, AT_KEYEXCHANGE);
    csp("CPGetProvParam", {PP_UNIQUE_CONTAINER, query()});
    ask(usageBoth, AT_KEYEXCHANGE);
    ask(usageKeyExchange, AT_SIGNATURE);
    errorsAlone();
    ask(4, AT_KEYEXCHANGE);
}

TRANSCRIPT(KeysTranscript, "without a container the first key that suits is taken")
{
    open();
    csp("CPGetUserKey", {AT_SIGNATURE});
    token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    token.withKeyPair(usageSigning, algorithmP384);
    auto& third = token.withKeyPair(usageBoth, algorithmRsa4096);
    const HCRYPTKEY key = csp("CPGetUserKey", {AT_SIGNATURE});
    for (const DWORD id : {KP_PERMISSIONS, KP_ALGID, KP_BLOCKLEN, KP_KEYLEN, KP_MODE}) csp("CPGetKeyParam", {key, id, room(8)});
    errorsAlone();
    recorder.note("of each type");
    for (const std::uint32_t type : {1, 2, 3, 4, 5, 6, 7, 0, 8}) {
        token.keyPairs[1].algorithm = type;
        noteKey(userKey());
    }
    csp("CPGetUserKey", {0});
    setText(third.label, "my key");
    third.hardware = 1;
    std::ranges::fill(third.keyId, static_cast<unsigned char>(0xAB));
    openContainerOf(third);
    noteKey(csp("CPGetUserKey", {AT_KEYEXCHANGE}));
    recorder.note("the name is compared exactly");
    for (const char* name : {"abababababababababababababababab", "ABABABABABABABABABABABABABABABA"}) {
        open(name);
        csp("CPGetUserKey", {AT_SIGNATURE});
    }
}

TRANSCRIPT(KeysTranscript, "a generated key is what the token made, and its size is what was asked for")
{
    open();
    cachePin();
    token.onGenerate = [](QueltaKeyPair& made) {
        made.usage = usageBoth;
        made.hardware = 1;
        setReference(made, counting(128));
        setPublicKey(made, counting(256, 0xC1));
        std::ranges::fill(made.label, 'L');
    };
    noteKey(csp("CPGenKey", {CALG_RSA_SIGN}));
    token.onGenerate = nullptr;
    noteKey(csp("CPGenKey", {CALG_RSA_KEYX, 0x04000001}));
    errorsAlone();
    csp("CPGenKey", {AT_SIGNATURE});
    tokenState().pinCache.clear();
    user.cancels();
    csp("CPGenKey", {CALG_RSA_SIGN});
}

TRANSCRIPT(KeysTranscript, "only some keys take a vector, and all else is accepted and dropped")
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    open();
    const HCRYPTKEY aes256 = sessionKey(CALG_AES_256, Bytes(32, 1));
    csp("CPSetKeyParam", {aes256, KP_PADDING, littleEndian({77}), 5});
    errorsAlone();
    csp("CPSetKeyParam", {aes256, KP_MODE, CspCalls::null});
    for (const auto& [key, iv] : {std::pair<HCRYPTKEY, Input>{sessionKey(CALG_AES_128, Bytes(16, 1)), counting(16)},
                                  {aes256, counting(16)},
                                  {sessionKey(CALG_3DES, Bytes(24, 1)), counting(8, 0x40)},
                                  {userKey(), CspCalls::null},
                                  {aes256, CspCalls::null}}) {
        csp("CPSetKeyParam", {key, KP_IV, iv});
        recorder.note("the vector is " + words(*tokenState().sharedIv.bytes()));
    }
    csp("CPDestroyKey", {aes256});
}

} // namespace quelta::test
