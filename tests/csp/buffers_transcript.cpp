#include "csp/csp_scenario.h"

namespace quelta::test {

// Each value into buffers of every interesting size, which end at an inaccessible page as their lengths do.
class BuffersTranscript : public CspScenario {
protected:
    BuffersTranscript()
    {
        token.withCertificateOf(pair, counting(300));
        openContainerOf(pair);
        errorsAlone();
    }
    void handOut(const std::string& what, DWORD size, const std::function<BOOL(BYTE* data, DWORD* length)>& call)
    {
        const Recorder::Pause pause(recorder);
        Answers answers;
        for (const Place& place : {query(), query(size + 9), room(0), room(1), room(size - 1), room(size), room(size + 3)}) {
            HandedBuffer buffer(place);
            const auto called = callWithLastError([&] { return call(buffer.data(), buffer.length()); });
            answers.emplace_back(words(place), CspCalls::answerText(called) + buffer.outcome());
        }
        noteAnswers(what, answers);
    }

    QueltaKeyPair& pair = token.withKeyPair(usageBoth, algorithmRsa2048);
};

TEST_F(BuffersTranscript, OfProviderParameters)
{
    using Row = std::tuple<const char*, DWORD, DWORD>;
    for (const auto& [name, parameter, size] :
         {Row{"PP_ENUMALGS", PP_ENUMALGS, 32}, Row{"PP_ENUMALGS_EX", PP_ENUMALGS_EX, 88}, Row{"PP_NAME", PP_NAME, 34},
          Row{"PP_ENUMCONTAINERS", PP_ENUMCONTAINERS, 33}, Row{"PP_CONTAINER", PP_CONTAINER, 33},
          Row{"PP_VERSION", PP_VERSION, 4}, Row{"PP_KEYSTORAGE", PP_KEYSTORAGE, 4}, Row{"PP_ADMIN_PIN", PP_ADMIN_PIN, 4},
          Row{"PP_USE_HARDWARE_RNG", PP_USE_HARDWARE_RNG, 4}, Row{"PP_KEYSPEC", PP_KEYSPEC, 4},
          Row{"PP_ENUMEX_SIGNING_PROT", PP_ENUMEX_SIGNING_PROT, 4}}) {
        const DWORD id = parameter;
        handOut(name, size, [&](auto data, auto length) { return CPGetProvParam(csp.context, id, data, length, CRYPT_FIRST); });
    }
}

TEST_F(BuffersTranscript, OfKeysAndHashes)
{
    const HCRYPTKEY key = userKey();
    const HCRYPTHASH hash = finishedHash();
    for (const DWORD id : {KP_PERMISSIONS, KP_ALGID, KP_BLOCKLEN, KP_KEYLEN, KP_CERTIFICATE}) {
        handOut(keyParameterName(id), id == KP_CERTIFICATE ? 300 : 4,
                [&](auto data, auto length) { return CPGetKeyParam(csp.context, key, id, data, length, 0); });
    }
    for (const DWORD id : {HP_ALGID, HP_HASHSIZE, HP_HASHVAL}) {
        handOut(hashParameterName(id), id == HP_HASHVAL ? 32 : 4,
                [&](auto data, auto length) { return CPGetHashParam(csp.context, hash, id, data, length, 0); });
    }
    const Bytes rsa = concat({littleEndian({0x31415352, 2048, 65537}), reversed(publicKeyOf(pair))});
    recorder.call(keyBlob(PUBLICKEYBLOB, CALG_RSA_SIGN, rsa), "the whole key");
    handOut("CPExportKey", 276,
            [&](auto data, auto length) { return CPExportKey(csp.context, key, 0, PUBLICKEYBLOB, 0, data, length); });
}

} // namespace quelta::test
