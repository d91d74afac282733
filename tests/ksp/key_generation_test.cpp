#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspKeyGeneration : public KspTest {
protected:
    SECURITY_STATUS finalize(NCRYPT_KEY_HANDLE key) { return ksp.FinalizeKey(provider, key, 0); }

    static std::string generation(const char* algorithmAndUsage)
    {
        return std::string("generateKeyPair(TOKEN-1, 1234, ") + algorithmAndUsage + ", 00000000000000000000000000000000, )";
    }
};

TEST_F(KspKeyGeneration, TokenIsAskedForTheKeyThatTheSettingsMean)
{
    cachePin();
    const struct {
        LPCWSTR algorithm;
        DWORD legacyKeySpec;
        std::optional<DWORD> length;
        const char* algorithmAndUsage;
        DWORD bits;
    } rows[] = {
        {L"RSA", 0, {}, "2, 1", 2048},
        {L"RSA", AT_SIGNATURE, 0, "2, 1", 2048},
        {L"RSA", AT_KEYEXCHANGE, 1024, "1, 2", 1024},
        {L"RSA", 3, 3072, "3, 1", 3072},
        {L"RSA", 0, 4096, "4, 1", 4096},
        {L"RSA", 0, 1536, "2, 1", 1536},
        {L"ECDSA_P256", AT_KEYEXCHANGE, {}, "5, 1", 256},
        {L"ECDSA_P256", 0, 4096, "5, 1", 4096},
        {L"ECDSA_P521", 0, {}, "7, 1", 521},
    };
    for (const auto& row : rows) {
        const auto key = created(row.algorithm, row.legacyKeySpec);
        if (row.length) {
            EXPECT_EQ(setProperty(key, L"Length", littleEndian({*row.length})), 0);
        }
        ASSERT_EQ(finalize(key), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre(generation(row.algorithmAndUsage)));
        EXPECT_EQ(dwordProperty(key, L"Length"), row.bits) << row.algorithmAndUsage;
        EXPECT_EQ(textProperty(key, L"Name"), L"77777777777777777777777777777777");
    }
}

TEST_F(KspKeyGeneration, CreatingTouchesNoTokenAndTakesOnlyWholeNames)
{
    NCRYPT_KEY_HANDLE key = 7;
    for (const LPCWSTR algorithm : {L"rsa", L"ECDSA_P256 ", L"ECDSA", L""}) {
        EXPECT_EQ(ksp.CreatePersistedKey(provider, &key, algorithm, nullptr, 0, 0), NTE_NOT_SUPPORTED);
    }
    EXPECT_EQ(ksp.CreatePersistedKey(provider, &key, nullptr, L"", 0, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.CreatePersistedKey(provider, nullptr, L"RSA", L"", 0, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(key, 7u);
    EXPECT_EQ(ksp.CreatePersistedKey(provider, &key, L"RSA", nullptr, 0, 0), 0);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    owned(key);
}

TEST_F(KspKeyGeneration, FailureLeavesTheRecordToBeTriedAgain)
{
    const auto key = created(L"RSA");
    user.cancels();
    EXPECT_EQ(finalize(key), NTE_FAIL);
    cachePin();
    token.willAnswer(Call::generateKeyPair, 31);
    EXPECT_EQ(finalize(key), NTE_INTERNAL_ERROR);
    EXPECT_EQ(log.takeLines().back(), error("KSP: Key generation failed: 31"));
    EXPECT_EQ(dwordProperty(key, L"Length"), 0u);
    EXPECT_EQ(textProperty(key, L"Name"), std::wstring(32, L'0'));

    EXPECT_EQ(setProperty(key, L"Length", littleEndian({4096})), 0);
    EXPECT_EQ(setProperty(key, L"Key Usage", littleEndian({3})), 0);
    token.takeCalls();
    EXPECT_EQ(finalize(key), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre(generation("4, 3")));

    tokenState().pinCache.clear();
    EXPECT_EQ(finalize(key), 0) << "and makes no second key";
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    EXPECT_EQ(finalize(opened(token.withKeyPair(usageSigning, algorithmRsa1024))), 0) << "an opened key is there already";
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

TEST_F(KspKeyGeneration, WhatTheTokenMadeIsTakenOver)
{
    cachePin();
    token.onGenerate = [](QueltaKeyPair& pair) {
        setPublicKey(pair, counting(5, 0x31));
        setReference(pair, counting(3));
        pair.hardware = 1;
        pair.algorithm = algorithmP521;
        pair.usage = usageBoth;
    };
    const auto key = created(L"RSA");
    EXPECT_EQ(finalize(key), 0);
    const KspKey& record = *kspKeyOf(key);
    EXPECT_TRUE(std::ranges::equal(record.publicKey.view(), counting(5, 0x31)));
    EXPECT_TRUE(std::ranges::equal(record.objectId.view(), counting(3)));
    EXPECT_EQ(record.keyName, L"a name");
    EXPECT_EQ(dwordProperty(key, L"Key Usage"), 2u) << "algorithm and usage stay what was asked for";
    EXPECT_EQ(textProperty(key, L"Algorithm Name"), L"RSA");
    token.takeCalls();
    EXPECT_EQ(ksp.DeleteKey(provider, key, 0), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre("deleteKeyPair(TOKEN-1, 77777777777777777777777777777777, 1234, true)"));
}

TEST_F(KspKeyGeneration, DeletedKeyLosesItsNameAndOneThatStaysDoesNot)
{
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    user.cancels();
    EXPECT_EQ(ksp.DeleteKey(provider, key, 0), NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
    cachePin();
    token.willAnswer(Call::deleteKeyPair, -4);
    EXPECT_EQ(ksp.DeleteKey(provider, key, 0), NTE_INTERNAL_ERROR);
    EXPECT_EQ(kspKeyOf(key)->keyName, L"01010101010101010101010101010101");
    EXPECT_EQ(ksp.DeleteKey(provider, key, 0), 0);
    EXPECT_EQ(kspKeyOf(key)->keyName, L"");
    EXPECT_THAT(token.takeCalls(), testing::Each("deleteKeyPair(TOKEN-1, 01010101010101010101010101010101, 1234, false)"));
    EXPECT_EQ(ksp.FinalizeKey(provider, key, 0), 0) << "still finalized";
}

} // namespace quelta::test
