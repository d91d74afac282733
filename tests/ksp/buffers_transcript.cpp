#include "ksp/ksp_scenario.h"

namespace quelta::test {

class KspBuffersTranscript : public KspScenario {
protected:
    KspBuffersTranscript()
    {
        auto& pair = token.withKeyPair(usageBoth, algorithmRsa1024);
        token.withCertificateOf(pair, counting(40));
        key = opened(pair);
        cachePin();
        token.cipher.bytes = token.signature.bytes = counting(128);
    }
    // Makes a call for each output, with each of the places that `places` returns for its size.
    void handOutEach(const std::function<std::vector<Place>(DWORD size)>& places)
    {
        const struct {
            DWORD size;
            const char* slot;
            std::vector<KspCalls::Stated> arguments;
        } rows[] = {{68, "KSPGetProviderProperty", {L"Name"}},    {4, "KSPGetProviderProperty", {L"Impl Type"}},
                    {66, "KSPGetKeyProperty", {key, L"Name"}},    {4, "KSPGetKeyProperty", {key, L"Length"}},
                    {16, "KSPGetKeyProperty", {key, L"Lengths"}}, {40, "KSPGetKeyProperty", {key, L"SmartCardKeyCertificate"}},
                    {155, "KSPExportKey", {key, L"PUBLICBLOB"}},  {148, "KSPExportKey", {key, L"CAPIPUBLICBLOB"}},
                    {128, "KSPSignHash", {key, Bytes{1, 2, 3}}},  {128, "KSPEncrypt", {key, Bytes{1, 2, 3}}},
                    {10, "KSPDecrypt", {key, counting(32)}},      {32, "KSPDecrypt", {clearKey(counting(16)), counting(32)}}};
        for (auto [size, slot, arguments] : rows) {
            arguments.emplace_back(room(0));
            for (const Place& place : places(size)) {
                arguments.back() = place;
                ksp(slot, arguments);
            }
        }
    }

    Key key = 0;
};

// Each buffer ends at an inaccessible page, or has three bytes to spare.
TRANSCRIPT(KspBuffersTranscript, "each slot tells the size, and writes only what fits")
{
    handOutEach([](DWORD size) { return std::vector{query(size), room(size - 1), room(size + 3)}; });
}

TRANSCRIPT(KspBuffersTranscript, "one variable is the length and the buffer")
{
    errorsAlone();
    handOutEach([](DWORD size) { return std::vector{oneVariable(size)}; });
}

} // namespace quelta::test
