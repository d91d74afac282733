#include "csp/csp_scenario.h"

#include <memory>

namespace quelta::test {

class HashTranscript : public CspScenario {
protected:
    HashTranscript() { open(); }
};

TEST_F(HashTranscript, AlgorithmsAndTheirMechanisms)
{
    for (const ALG_ID algorithm : {CALG_SHA1, CALG_SHA_256, CALG_SHA_384, CALG_SHA_512, CALG_MD5, CALG_HMAC})
        csp.createHash(algorithm);
    csp.createHash(CALG_MD5, 1);
    token.willAnswer(Call::initHash, 6);
    csp.createHash(CALG_SHA1);
}

TEST_F(HashTranscript, DigestIsFinishedWhenItIsFirstReadAndThenKept)
{
    const HCRYPTHASH hash = newHash();
    csp.hashData(hash, Bytes{1, 2, 3}, 7);
    csp.hashData(hash, Bytes{});
    csp.getHashParam(hash, HP_HASHVAL, query());
    csp.getHashParam(hash, HP_HASHVAL, room(4));
    csp.hashData(hash, Bytes{4});
    csp.getHashParam(hash, HP_HASHVAL, room(40));
    csp.destroyHash(hash);
}

TEST_F(HashTranscript, SizeAndAlgorithmAreReadBack)
{
    for (const ALG_ID algorithm : {CALG_SHA1, CALG_SHA_256}) {
        const HCRYPTHASH hash = newHash(algorithm);
        csp.getHashParam(hash, HP_ALGID, room(4));
        csp.getHashParam(hash, HP_HASHSIZE, room(4));
        csp.getHashParam(hash, HP_HASHVAL, room(20));
    }
    errorsAlone();
    for (const DWORD parameter : {HP_ALGID, HP_HASHSIZE}) {
        for (const Place& place : {query(), room(3)}) csp.getHashParam(newHash(), parameter, place);
    }
}

TEST_F(HashTranscript, LongDigestsAreNotReadBack)
{
    for (const ALG_ID algorithm : {CALG_SHA_384, CALG_SHA_512}) {
        const HCRYPTHASH hash = newHash(algorithm);
        csp.getHashParam(hash, HP_HASHVAL, query());
        csp.getHashParam(hash, HP_ALGID, room(4));
        csp.getHashParam(hash, HP_HASHSIZE, room(4));
        errorsAlone();
    }
    csp.getHashParam(newHash(CALG_SHA_384), HP_ALGID, query());
}

TEST_F(HashTranscript, DigestThatIsSetIsReadAsItIs)
{
    const HCRYPTHASH hash = newHash(CALG_SHA1);
    csp.setHashParam(hash, HP_HASHVAL, counting(20));
    csp.getHashParam(hash, HP_HASHVAL, room(19));
    csp.getHashParam(hash, HP_HASHVAL, room(20));
}

TEST_F(HashTranscript, StructureForHMACRestartsThePlainHashAndIsNotReadBack)
{
    const HCRYPTHASH hash = newHash();
    csp.hashData(hash, Bytes{1});
    csp.setHashParam(hash, HP_HMAC_INFO, counting(sizeof(HMAC_INFO)));
    csp.hashData(hash, Bytes{2});
    csp.getHashParam(hash, HP_HMAC_INFO, room(40));
    errorsAlone();
    csp.getHashParam(hash, HP_HMAC_INFO, query());
    token.willAnswer(Call::initHash, 4);
    csp.setHashParam(hash, HP_HMAC_INFO, counting(sizeof(HMAC_INFO)));
    csp.getHashParam(hash, HP_HASHVAL, room(32));
    recorder.note("a finished digest stays finished");
    csp.setHashParam(hash, HP_HMAC_INFO, counting(sizeof(HMAC_INFO)));
    csp.getHashParam(hash, HP_HASHVAL, room(32));
}

TEST_F(HashTranscript, DuplicateStartsAfreshUnlessTheDigestIsFinished)
{
    const HCRYPTHASH hash = newHash();
    csp.hashData(hash, Bytes{1});
    const HCRYPTHASH copy = csp.duplicateHash(hash);
    csp.hashData(copy, Bytes{2});
    csp.hashData(hash, Bytes{3});
    csp.getHashParam(csp.duplicateHash(finishedHash()), HP_HASHVAL, room(32));
    token.willAnswer(Call::initHash, 4);
    csp.duplicateHash(hash);
}

TEST_F(HashTranscript, DuplicateTakenAfterSigningSignsWithTheSameKeyAndDigest)
{
    token.withKeyPair(usageSigning, algorithmRsa3072);
    cachePin();
    token.digest.bytes = counting(64, 0x90);
    const HCRYPTHASH hash = newHash(CALG_SHA_512);
    csp.signHash(hash, AT_SIGNATURE, query());
    const HCRYPTHASH copy = csp.duplicateHash(hash);
    errorsAlone();
    csp.signHash(copy, AT_SIGNATURE, room(384));
    recorder.note("a digest that is set is as long as the hash's own algorithm has it");
    csp.setHashParam(copy, HP_HASHVAL, counting(64));
    csp.signHash(copy, AT_SIGNATURE, room(384));
    recorder.note("signing finished nothing: read back, the digest is asked for once more");
    token.digest.bytes = counting(32, 0x90);
    csp.getHashParam(hash, HP_HASHVAL, room(32));
}

TEST_F(HashTranscript, RefusalsAndFailuresOfTheToken)
{
    const HCRYPTHASH hash = newHash();
    csp.getHashParam(hash, 99, query(4), 1);
    csp.getHashParam(hash, 99, query(4));
    csp.getHashParam(hash, HP_HASHVAL, nowhere());
    csp.setHashParam(hash, HP_HASHVAL, CspCalls::null, 1);
    csp.setHashParam(hash, HP_HASHVAL, Bytes(32), 1);
    csp.setHashParam(hash, HP_ALGID, Bytes(4));
    csp.duplicateHash(hash, 1);
    csp.call("CPHashData", "1 byte and no address", [&] { return CPHashData(csp.context, hash, nullptr, 1, 0); });
    token.willAnswer(Call::updateHash, 9);
    csp.hashData(hash, Bytes{1});
    token.willAnswer(Call::finalHash, 8);
    csp.getHashParam(hash, HP_HASHVAL, room(32));
    token.digest.reportedLength = 33;
    csp.getHashParam(hash, HP_HASHVAL, room(32));
    recorder.note("a shorter one is as long as it is");
    token.digest.reportedLength.reset();
    token.digest.bytes = counting(20);
    csp.getHashParam(hash, HP_HASHVAL, room(32));
}

TEST_F(HashTranscript, DataThatTheTokensLengthsCanNotSayGoesInPieces)
{
    constexpr std::size_t size = 0x80000005, readable = 0x10000;
    // The token's stand-in looks at short pieces only.
    const std::unique_ptr<void, decltype([](void* memory) { VirtualFree(memory, 0, MEM_RELEASE); })> memory(
        VirtualAlloc(nullptr, size + readable, MEM_RESERVE, PAGE_NOACCESS));
    auto* const data = static_cast<BYTE*>(memory.get());
    require(VirtualAlloc(data + size - readable, readable, MEM_COMMIT, PAGE_READWRITE) != nullptr, "VirtualAlloc");
    const HCRYPTHASH hash = newHash();
    csp.call("CPHashData", "2147483653 bytes", [&] { return CPHashData(csp.context, hash, data, 0x80000005, 0); });
    token.willAnswer(Call::updateHash, 9);
    csp.call("CPHashData", "2147483653 bytes", [&] { return CPHashData(csp.context, hash, data, 0x80000005, 0); });
}

TEST_F(HashTranscript, AtLevelTwoErrorsAlone)
{
    errorsAlone();
    csp.createHash(CALG_MD5);
    csp.getHashParam(newHash(CALG_SHA_384), HP_HASHVAL, query());
}

} // namespace quelta::test
