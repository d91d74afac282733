#include "csp/csp_test.h"

#include <climits>

namespace quelta::test {

class SignHash : public CspTest {
protected:
    // With a key pair of its own on the token.
    void prepare(std::uint32_t algorithm = algorithmRsa2048)
    {
        name = keyName(token.withKeyPair(usageSigning, algorithm));
        prov = acquire();
        hash = finishedHash(prov);
    }
    HandOut signing(DWORD keySpec = AT_SIGNATURE) const
    {
        return [=, this](BYTE* data, DWORD* length) { return CPSignHash(prov, hash, keySpec, L"ignored", 5, data, length); };
    }
    static std::string signCall(const std::string& key, const std::string& pin)
    {
        return "signHash(TOKEN-1, " + key + ", " + pin + ", " + hexOf(counting(32)) + ", room 300, false)";
    }
    void expectFailure(auto code) { EXPECT_EQ(handTo(room(300), signing()), (Handed{failedWith(code), 300, room(300)})); }

    std::string name;
    HCRYPTPROV prov = 0;
    HCRYPTHASH hash = 0;
};

TEST_F(SignHash, KeyIsChosenByContainerThenByUsage)
{
    struct Row {
        std::vector<std::uint32_t> usages;
        // Which key the container names, 0 for any and 9 for one that is not there; and which signs, 0 for none.
        std::size_t named, chosen;
    };
    cachePin();
    for (const Row& row :
         {Row{{1}, 0, 1}, Row{{2, 1, 3}, 0, 2}, Row{{1, 1, 1}, 3, 3}, Row{{1, 3, 2}, 2, 2}, Row{{1, 1}, 9, 0},
          Row{{2, 1, 3}, 1, 3}, Row{{1, 2, 3, 1, 2}, 2, 4}, Row{{2, 2}, 1, 0}, Row{{0, 4, 5}, 0, 0}, Row{{}, 0, 0}}) {
        SCOPED_TRACE(testing::PrintToString(row.usages) + ", named " + std::to_string(row.named));
        token.keyPairs.clear();
        std::vector<std::string> names = {""};
        for (const auto usage : row.usages) names.push_back(keyName(token.withKeyPair(usage, algorithmRsa2048)));
        names.resize(10, "nobody");
        prov = acquire(names[row.named]);
        for (const DWORD keySpec : {AT_SIGNATURE, AT_KEYEXCHANGE, 0}) {
            hash = finishedHash(prov);
            EXPECT_EQ(handTo(room(300), signing(keySpec)).answer, row.chosen == 0 ? failedWith(NTE_NO_KEY) : succeeded());
            EXPECT_EQ(token.takeDeeds(),
                      row.chosen == 0 ? std::vector<std::string>() : std::vector{signCall(names[row.chosen], "1234")});
        }
    }
}

TEST_F(SignHash, SizeQueryFinishesTheDigestSettlesTheKeyAndAsksForNoPin)
{
    struct Row {
        std::uint32_t algorithm;
        DWORD size;
        // What HP_ALGID answers once signing has put its own number in place of the hash's.
        Handed readBack;
    };
    const auto reads = [](ALG_ID algorithm) { return Handed{succeeded(), 4, littleEndian({algorithm})}; };
    const Handed unreadable = {failedWith(NTE_BAD_ALGID), 4, room(4)};
    for (const Row& row : {Row{algorithmRsa1024, 256, reads(CALG_MD5)}, Row{algorithmRsa2048, 256, reads(CALG_SHA1)},
                           Row{algorithmRsa3072, 384, reads(CALG_SHA_256)}, Row{algorithmRsa4096, 512, unreadable},
                           Row{algorithmP256, 256, unreadable}}) {
        SCOPED_TRACE(row.algorithm);
        token.keyPairs.clear();
        prepare(row.algorithm);
        hash = newHash(prov);
        EXPECT_EQ(query(0, signing()), (Handed{succeeded(), row.size, {}}));
        EXPECT_THAT(token.takeCalls(), ElementsAre(::testing::EndsWith(", room 128)"), "getKeyPairList(TOKEN-1)"));
        EXPECT_EQ(handTo(room(4), [&](auto data, auto size) { return CPGetHashParam(prov, hash, HP_ALGID, data, size, 0); }),
                  row.readBack);
        query(0, signing());
        EXPECT_THAT(token.takeCalls(), IsEmpty()) << "neither the digest nor the key is asked for again";
    }
}

TEST_F(SignHash, SignatureIsTurnedWhereItStandsAndNothingBehindIt)
{
    prepare();
    user.entersPin("1234");
    token.signature.bytes = counting(256);
    const Handed expected = {succeeded(), 256, concat({reversed(counting(256)), room(44)})};
    EXPECT_EQ(handTo(room(300), signing()), expected);
    EXPECT_THAT(token.takeDeeds(), ElementsAre("validatePassword(TOKEN-1, 1234, 1, 0)", signCall(name, "1234")));
    EXPECT_EQ(handTo(room(300), signing()), expected);
    EXPECT_THAT(token.takeCalls(), ElementsAre(signCall(name, "1234"))) << "key, digest and PIN are kept";
}

TEST_F(SignHash, ExpiredSignOnIsRenewedOnceAndACancelledPromptLeavesNoPin)
{
    prepare();
    user.cancels();
    expectFailure(NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
    cachePin("old pin");
    token.willAnswer(Call::signHash, 49);
    user.entersPin("1234");
    EXPECT_EQ(handTo(room(300), signing()).buffer, reversed(counting(300)));
    EXPECT_THAT(token.takeDeeds(),
                ElementsAre(signCall(name, "old pin"), "validatePassword(TOKEN-1, 1234, 1, 0)", signCall(name, "1234")));
    EXPECT_EQ(cachedPin(), "1234");
    token.willAnswer(Call::signHash, 49);
    user.cancels();
    expectFailure(NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(signCall(name, "1234")));
    EXPECT_FALSE(tokenState().pinCache.validated());
    token.openSingleSignOn();
    token.willAnswer(Call::signHash, 49);
    token.willAnswer(Call::signHash, 49);
    expectFailure(NTE_PROVIDER_DLL_FAIL);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(signCall(name, ""), signCall(name, ""))) << "no third attempt";
}

TEST_F(SignHash, ImpossibleLengthsGiveNoSignature)
{
    prepare();
    cachePin();
    token.signature.bytes = Bytes();
    for (const int reported : {-1, 301, INT_MIN, INT_MAX}) {
        token.signature.reportedLength = reported;
        expectFailure(NTE_PROVIDER_DLL_FAIL);
    }
    hash = newHash(prov, CALG_SHA_512);
    BYTE signature = 0;
    DWORD tooMuch = 0x80000000;
    expectFails(ERROR_INVALID_PARAMETER, [&] { return signing()(&signature, nullptr); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return signing()(&signature, &tooMuch); });
    EXPECT_THAT(token.takeCalls(), IsEmpty()) << "before the digest is finished";
    token.willAnswer(Call::finalHash, 3);
    expectFailure(NTE_FAIL);
    token.digest.reportedLength = 129;
    expectFailure(NTE_FAIL);
    EXPECT_EQ(token.takeCalls().size(), 2U) << "it is asked for again, and no key is looked for";
}

} // namespace quelta::test
