#include "csp/csp_scenario.h"

#include <memory>

namespace quelta::test {

class HashTranscript : public CspScenario {
protected:
    HashTranscript()
    {
        open();
        hash = newHash();
    }

    HCRYPTHASH hash;
};

TRANSCRIPT(HashTranscript, "the algorithms and their mechanisms")
{
    for (const ALG_ID algorithm : {CALG_SHA1, CALG_SHA_256, CALG_SHA_384, CALG_SHA_512, CALG_MD5})
        csp("CPCreateHash", {algorithm});
    errorsAlone();
    csp("CPCreateHash", {CALG_MD5, 1});
}

TRANSCRIPT(HashTranscript, "the digest is finished when it is first read, and then kept")
{
    for (const Bytes& data : {Bytes{1, 2, 3}, Bytes()}) csp("CPHashData", {hash, data});
    for (const Place& place : {query(), room(4)}) csp("CPGetHashParam", {hash, HP_HASHVAL, place});
    errorsAlone();
    csp("CPHashData", {hash, Bytes{4}});
    csp("CPGetHashParam", {hash, HP_HASHVAL, room(40)});
    csp("CPDestroyHash", {hash});
}

TRANSCRIPT(HashTranscript, "size and algorithm are read back unless the digest is long")
{
    const auto readAll = [this](HCRYPTHASH of) {
        for (const DWORD parameter : {HP_ALGID, HP_HASHSIZE}) csp("CPGetHashParam", {of, parameter, room(4)});
        csp("CPGetHashParam", {of, HP_HASHVAL, query()});
    };
    for (const ALG_ID algorithm : {CALG_SHA_256, CALG_SHA_384}) readAll(newHash(algorithm));
    errorsAlone();
    for (const ALG_ID algorithm : {CALG_SHA1, CALG_SHA_512}) readAll(newHash(algorithm));
    csp("CPGetHashParam", {newHash(CALG_SHA_384), HP_ALGID, query()});
    recorder.note("signing with a key of 1024 bits makes it one of MD5");
    token.withKeyPair(usageSigning, algorithmRsa1024);
    csp.signHash(hash, query());
    readAll(hash);
}

TRANSCRIPT(HashTranscript, "the HMAC structure restarts the plain hash and is not read back")
{
    hash = newHash(CALG_SHA1);
    const auto setHmac = [&] { csp("CPSetHashParam", {hash, HP_HMAC_INFO, counting(sizeof(HMAC_INFO))}); };
    setHmac();
    errorsAlone();
    csp("CPHashData", {hash, Bytes{2}});
    csp("CPGetHashParam", {hash, HP_HMAC_INFO, room(40)});
    csp("CPSetHashParam", {hash, HP_HASHVAL, counting(20)});
    setHmac();
    csp("CPGetHashParam", {hash, HP_HASHVAL, room(20)});
    csp("CPHashData", {hash, Bytes{3}});
}

TRANSCRIPT(HashTranscript, "a duplicate starts afresh unless the digest is finished")
{
    csp("CPHashData", {hash, Bytes{1}});
    HCRYPTHASH copy = csp("CPDuplicateHash", {hash});
    errorsAlone();
    csp("CPHashData", {copy, Bytes{2}});
    csp("CPHashData", {hash, Bytes{3}});
    csp("CPGetHashParam", {csp("CPDuplicateHash", {finishedHash()}), HP_HASHVAL, room(32)});
    csp("CPDuplicateHash", {hash, 1});
    recorder.note("taken after signing, it signs with the same key and digest");
    token.withKeyPair(usageSigning, algorithmRsa3072);
    cachePin();
    token.digest.bytes = counting(64, 0x90);
    hash = newHash(CALG_SHA_512);
    csp.signHash(hash, query());
    copy = csp("CPDuplicateHash", {hash});
    csp.signHash(copy, query());
    csp.signHash(copy, room(384));
    recorder.note("a digest that is set is as long as the hash's own algorithm has it");
    csp("CPSetHashParam", {copy, HP_HASHVAL, counting(64)});
    csp.signHash(copy, room(384));
    recorder.note("signing finished nothing: read back, the digest is asked for once more");
    token.digest.bytes = counting(32, 0x90);
    csp("CPGetHashParam", {hash, HP_HASHVAL, room(32)});
}

TRANSCRIPT(HashTranscript, "data that is longer than the token can count goes in pieces")
{
    constexpr DWORD size = 0x80000005, readable = 0x10000;
    // The fake library reads short pieces only.
    const std::unique_ptr<void, decltype([](void* memory) { VirtualFree(memory, 0, MEM_RELEASE); })> memory(
        VirtualAlloc(nullptr, std::size_t{size} + readable, MEM_RESERVE, PAGE_NOACCESS));
    auto* const data = static_cast<BYTE*>(memory.get());
    require(VirtualAlloc(data + size - readable, readable, MEM_COMMIT, PAGE_READWRITE) != nullptr, "VirtualAlloc");
    data[size - 1] = 0xEE;
    for (const int answer : {0, 9}) {
        token.willAnswer(Call::updateHash, answer);
        recorder.record("CPHashData", "2147483653 bytes", [&] {
            return answerText(callWithLastError([&] { return CPHashData(csp.context, hash, data, size, 0); }));
        });
        token.willAnswer(Call::updateHash, 0);
    }
}

TRANSCRIPT(HashTranscript, "refused parameters")
{
    csp("CPGetHashParam", {hash, 99, query(4)});
    csp("CPSetHashParam", {hash, HP_ALGID, Bytes(4)});
    errorsAlone();
    csp("CPGetHashParam", {hash, 99, query(4), 1});
    csp("CPSetHashParam", {hash, HP_HASHVAL, CspCalls::null, 1});
    token.digest.reportedLength = 20;
    csp("CPGetHashParam", {hash, HP_HASHVAL, room(32)});
}

} // namespace quelta::test
