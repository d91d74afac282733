#include "csp/csp_scenario.h"

namespace quelta::test {

// Each value goes into buffers of every interesting size. Buffers and lengths end at an inaccessible page.
class BuffersTranscript : public CspScenario {
protected:
    BuffersTranscript()
    {
        token.withCertificateOf(pair, counting(300));
        openContainerOf(pair);
        key = userKey();
        hash = finishedHash();
        const Bytes rsa = concat({littleEndian({0x31415352, 2048, 65537}), reversed(publicKeyOf(pair))});
        recorder.call(keyBlob(PUBLICKEYBLOB, CALG_RSA_SIGN, rsa), "the whole key");
    }
    // Makes a call for each output, with each of the places that `places` returns for its size.
    void handOutEach(const std::function<std::vector<Place>(DWORD size)>& places)
    {
        const std::pair<DWORD, std::vector<DWORD>> ofProvider[] = {
            {32, {PP_ENUMALGS}},
            {88, {PP_ENUMALGS_EX}},
            {34, {PP_NAME}},
            {33, {PP_ENUMCONTAINERS, PP_CONTAINER, PP_UNIQUE_CONTAINER}},
            {4,
             {PP_VERSION, PP_IMPTYPE, PP_PROVTYPE, PP_KEYSTORAGE, PP_KEYSET_TYPE, PP_ADMIN_PIN, PP_KEYEXCHANGE_PIN,
              PP_SIGNATURE_PIN, PP_USE_HARDWARE_RNG, PP_KEYSPEC, PP_ENUMEX_SIGNING_PROT}}};
        const std::pair<DWORD, DWORD> ofKey[] = {
            {KP_PERMISSIONS, 4}, {KP_ALGID, 4}, {KP_BLOCKLEN, 4}, {KP_KEYLEN, 4}, {KP_CERTIFICATE, 300}};
        for (const auto& [size, parameters] : ofProvider) {
            for (const DWORD parameter : parameters)
                for (const Place& place : places(size)) csp("CPGetProvParam", {parameter, place, CRYPT_FIRST});
        }
        for (const auto& [parameter, size] : ofKey) {
            for (const Place& place : places(size)) csp("CPGetKeyParam", {key, parameter, place});
        }
        for (const auto& [parameter, size] : {std::pair<DWORD, DWORD>{HP_ALGID, 4}, {HP_HASHSIZE, 4}, {HP_HASHVAL, 32}}) {
            for (const Place& place : places(size)) csp("CPGetHashParam", {hash, parameter, place});
        }
        for (const Place& place : places(276)) csp("CPExportKey", {key, PUBLICKEYBLOB, 0, place});
    }

    QueltaKeyPair& pair = token.withKeyPair(usageBoth, algorithmRsa2048);
    HCRYPTKEY key = 0;
    HCRYPTHASH hash = 0;
};

TRANSCRIPT(BuffersTranscript, "each output tells its size, and is written if it fits")
{
    handOutEach(
        [](DWORD size) { return std::vector{query(size + 9), room(0), room(1), room(size - 1), room(size), room(size + 3)}; });
}

TRANSCRIPT(BuffersTranscript, "one variable is the length and the buffer")
{
    errorsAlone();
    handOutEach([](DWORD size) { return std::vector{oneVariable(size)}; });
    recorder.note("of a digest that is not finished");
    csp("CPGetHashParam", {newHash(), HP_HASHVAL, oneVariable(32)});
    cachePin();
    csp.signHash(hash, oneVariable(256));
    csp("CPEncrypt", {key, 0, oneVariable(256)});
    token.symmetricPlain.bytes = counting(20);
    for (const HCRYPTKEY with : {key, sessionKey(CALG_AES_256, counting(32))}) csp("CPDecrypt", {with, 0, oneVariable(32)});
}

} // namespace quelta::test
