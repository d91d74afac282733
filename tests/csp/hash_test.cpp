#include "csp/csp_test.h"

namespace quelta::test {

namespace {

struct Algorithm {
    ALG_ID id;
    int mechanism;
    DWORD size;
};
constexpr Algorithm algorithms[] = {
    {CALG_SHA1, 2, 20},
    {CALG_SHA_256, 3, 32},
    {CALG_SHA_384, 4, 48},
    {CALG_SHA_512, 5, 64},
};

} // namespace

class Hash : public CspTest {
protected:
    HandOut asking(HCRYPTHASH hash, DWORD parameter = HP_HASHVAL) const
    {
        return [=, this](BYTE* data, DWORD* length) { return CPGetHashParam(prov, hash, parameter, data, length, 0); };
    }
    void feed(HCRYPTHASH hash, unsigned char byte) const
    {
        const GuardedBuffer data(Bytes{byte});
        expectSucceeds([&] { return CPHashData(prov, hash, data.data(), 1, 1); });
    }
    Called<BOOL> duplicate(HCRYPTHASH hash)
    {
        copy = untouchedHandle;
        const auto answer = callWithLastError([&] { return CPDuplicateHash(prov, hash, nullptr, 0, &copy); });
        if (answer.result) ownsHash(copy);
        return answer;
    }

    HCRYPTPROV prov = acquire();
    HCRYPTHASH copy = 0;
};

TEST_F(Hash, EachAlgorithmStartsItsMechanismTakesADigestOfItsSizeAndReadsBackIfItMay)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    cachePin();
    for (const Algorithm& algorithm : algorithms) {
        SCOPED_TRACE(algorithm.size);
        HCRYPTHASH hash = 0;
        expectSucceeds([&] { return CPCreateHash(prov, algorithm.id, 77, 0, &hash); });
        ownsHash(hash);
        EXPECT_THAT(token.takeCalls(), ElementsAre("initHash(TOKEN-1, " + std::to_string(algorithm.mechanism) + ")"));
        const GuardedBuffer digest(counting(algorithm.size));
        expectSucceeds([&] { return CPSetHashParam(prov, hash, HP_HASHVAL, digest.data(), 0); });
        if (algorithm.size <= 32) {
            expectHandsOut(shortIsRefused, littleEndian({algorithm.id}), asking(hash, HP_ALGID));
            expectHandsOut(shortIsRefused, littleEndian({algorithm.size}), asking(hash, HP_HASHSIZE));
            expectHandsOut(shortIsRefused, digest.bytes(), asking(hash));
        } else {
            const Handed refused = {failedWith(NTE_BAD_ALGID), 64, room(64)};
            for (const DWORD parameter : {HP_ALGID, HP_HASHSIZE}) {
                EXPECT_EQ(query(64, asking(hash, parameter)), (Handed{succeeded(), 4, {}}));
                EXPECT_EQ(handTo(room(64), asking(hash, parameter)), refused);
            }
            EXPECT_EQ(handTo(room(64), asking(hash)), refused);
            EXPECT_EQ(query(64, asking(hash)), (Handed{failedWith(NTE_BAD_ALGID), 64, {}}));
        }
        handTo(room(256), [&](BYTE* data, DWORD* length) { return CPSignHash(prov, hash, 0, nullptr, 0, data, length); });
        EXPECT_THAT(token.takeDeeds(), ElementsAre(::testing::HasSubstr(", 1234, " + hexOf(digest.bytes()) + ", room 256")));
        forget();
    }
}

TEST_F(Hash, RefusalsChangeNothing)
{
    HCRYPTHASH none = untouchedHandle;
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPCreateHash(prov, CALG_SHA1, 0, 1, nullptr); });
    expectFails(NTE_BAD_FLAGS, [&] { return CPCreateHash(prov, CALG_MD5, 0, 1, &none); });
    for (const ALG_ID algorithm : {CALG_MD5, CALG_HMAC, 3}) {
        expectFails(NTE_BAD_ALGID, [&] { return CPCreateHash(prov, algorithm, 0, 0, &none); });
    }
    token.willAnswer(Call::initHash, 6);
    expectFails(NTE_FAIL, [&] { return CPCreateHash(prov, CALG_SHA1, 0, 0, &none); });
    const HCRYPTHASH hash = newHash(prov);
    DWORD length = 4;
    const Bytes digest(40);
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPGetHashParam(prov, hash, 99, nullptr, nullptr, 1); });
    expectFails(NTE_BAD_FLAGS, [&] { return CPGetHashParam(prov, hash, 99, nullptr, &length, 1); });
    expectFails(NTE_BAD_TYPE, [&] { return CPGetHashParam(prov, hash, 99, nullptr, &length, 0); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPSetHashParam(prov, hash, HP_HASHVAL, nullptr, 1); });
    expectFails(NTE_BAD_FLAGS, [&] { return CPSetHashParam(prov, hash, HP_HASHVAL, digest.data(), 1); });
    expectFails(NTE_BAD_TYPE, [&] { return CPSetHashParam(prov, hash, HP_ALGID, digest.data(), 0); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPDuplicateHash(prov, hash, nullptr, 1, nullptr); });
    expectFails(NTE_BAD_FLAGS, [&] { return CPDuplicateHash(prov, hash, nullptr, 1, &none); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPHashData(prov, hash, nullptr, 1, 0); });
    EXPECT_EQ(none, untouchedHandle);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    token.willAnswer(Call::updateHash, 9);
    expectFails(NTE_FAIL, [&] { return CPHashData(prov, hash, digest.data(), 1, 0); });
}

TEST_F(Hash, DigestIsFinishedOnceAndKept)
{
    const HCRYPTHASH hash = newHash(prov);
    feed(hash, 1);
    EXPECT_EQ(query(0, asking(hash)), (Handed{succeeded(), 32, {}}));
    EXPECT_THAT(token.takeCalls(), ElementsAre("updateHash(1, 01)")) << "a query finishes nothing";
    for (const int reported : {-1, 33, 129, 0x7FFFFFFF}) {
        token.digest.reportedLength = reported;
        EXPECT_EQ(handTo(room(32), asking(hash)), (Handed{failedWith(NTE_FAIL), 32, room(32)})) << reported;
    }
    token.digest = {};
    token.willAnswer(Call::finalHash, 8);
    EXPECT_EQ(handTo(room(32), asking(hash)), (Handed{failedWith(NTE_FAIL), 32, room(32)}));
    token.takeCalls();
    EXPECT_EQ(handTo(room(4), asking(hash)), (Handed{failedWith(ERROR_MORE_DATA), 32, room(4)}));
    EXPECT_THAT(token.takeCalls(), ElementsAre("finalHash(1, room 32)")) << "a short buffer does, and a failure had kept nothing";
    token.digest.bytes = Bytes(32, 0xFF);
    feed(hash, 4);
    EXPECT_EQ(handTo(room(32), asking(hash)), (Handed{succeeded(), 32, counting(32, 0xD0)}));
    EXPECT_THAT(token.takeCalls(), ElementsAre("updateHash(1, 04)"));
    token.digest.bytes = counting(20);
    EXPECT_EQ(handTo(room(32), asking(newHash(prov))), (Handed{succeeded(), 20, concat({counting(20), room(12)})}));
}

TEST_F(Hash, HmacRestartsThePlainHashAndIsNotReadBack)
{
    const HCRYPTHASH hash = newHash(prov);
    const GuardedBuffer info = GuardedBuffer::of(HMAC_INFO{});
    const Attempt restart = [&] { return CPSetHashParam(prov, hash, HP_HMAC_INFO, info.data(), 0); };
    expectSucceeds(restart);
    feed(hash, 5);
    token.willAnswer(Call::initHash, 4);
    expectFails(NTE_FAIL, restart);
    feed(hash, 6);
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("initHash(TOKEN-1, 3)", "updateHash(2, 05)", "initHash(TOKEN-1, 3)", "updateHash(2, 06)"))
        << "the old one goes on after a failure";
    EXPECT_EQ(handTo(room(40), asking(hash, HP_HMAC_INFO)), (Handed{failedWith(NTE_BAD_TYPE), 40, room(40)}));
    handTo(room(32), asking(hash));
    expectSucceeds(restart);
    token.takeCalls();
    EXPECT_EQ(handTo(room(32), asking(hash)).buffer, counting(32, 0xD0));
    EXPECT_THAT(token.takeCalls(), IsEmpty()) << "a finished digest stays finished";
}

TEST_F(Hash, DuplicateStartsAfreshUnlessTheDigestWasFinished)
{
    const HCRYPTHASH source = newHash(prov);
    feed(source, 1);
    forget();
    ASSERT_EQ(duplicate(source), succeeded());
    feed(copy, 2);
    feed(source, 3);
    EXPECT_THAT(token.takeCalls(), ElementsAre("initHash(TOKEN-1, 3)", "updateHash(2, 02)", "updateHash(1, 03)"));
    ASSERT_EQ(duplicate(finishedHash(prov)), succeeded());
    token.takeCalls();
    EXPECT_EQ(handTo(room(32), asking(copy)).buffer, counting(32));
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    token.willAnswer(Call::initHash, 4);
    EXPECT_EQ(duplicate(source), failedWith(NTE_FAIL));
    EXPECT_EQ(copy, untouchedHandle);
}

} // namespace quelta::test
