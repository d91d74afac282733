#include "csp/csp_test.h"

#include "csp/key_context.h"

#include <climits>

namespace quelta::test {

class Keys : public CspTest {
protected:
    Called<BOOL> open(HCRYPTPROV prov, DWORD keySpec)
    {
        handle = untouchedHandle;
        return owned(callWithLastError([&] { return CPGetUserKey(prov, keySpec, &handle); }));
    }
    Called<BOOL> generate(HCRYPTPROV prov, ALG_ID algorithm, DWORD flags = 0)
    {
        handle = untouchedHandle;
        return owned(callWithLastError([&] { return CPGenKey(prov, algorithm, flags, &handle); }));
    }
    Called<BOOL> owned(Called<BOOL> answer)
    {
        if (answer.result) ownsKey(handle);
        return answer;
    }
    static HandOut asking(HCRYPTPROV prov, HCRYPTKEY key, DWORD parameter)
    {
        return [=](BYTE* data, DWORD* length) { return CPGetKeyParam(prov, key, parameter, data, length, 0); };
    }
    static void expectValue(HCRYPTPROV prov, HCRYPTKEY key, DWORD parameter, DWORD value)
    {
        EXPECT_EQ(handTo(room(4), asking(prov, key, parameter)), (Handed{succeeded(), 4, littleEndian({value})})) << parameter;
    }
    const KeyContext& key() const { return *keyOf(handle); }

    HCRYPTKEY handle = untouchedHandle;
};

TEST_F(Keys, UsageAndKeySpecDecideUntilTheContainerWasAskedFor)
{
    constexpr ALG_ID none = 0, sign = CALG_RSA_SIGN, exchange = CALG_RSA_KEYX;
    struct Row {
        std::uint32_t usage;
        DWORD keySpec;
        ALG_ID before, after;
    };
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    const HCRYPTPROV prov = acquire(keyName(pair));
    for (const Row& row :
         {Row{1, AT_SIGNATURE, sign, sign}, Row{1, AT_KEYEXCHANGE, none, sign}, Row{1, 0, none, sign},
          Row{2, AT_SIGNATURE, none, exchange}, Row{2, AT_KEYEXCHANGE, exchange, exchange}, Row{3, AT_SIGNATURE, sign, sign},
          Row{3, AT_KEYEXCHANGE, exchange, sign}, Row{3, 3, none, sign}, Row{0, AT_SIGNATURE, none, none},
          Row{4, AT_KEYEXCHANGE, none, none}, Row{5, AT_SIGNATURE, none, none}}) {
        pair.usage = row.usage;
        for (const DWORD asked : {DWORD{0}, DWORD{PP_CONTAINER}, DWORD{PP_UNIQUE_CONTAINER}}) {
            SCOPED_TRACE(testing::Message() << "usage " << row.usage << ", spec " << row.keySpec << ", asked " << asked);
            tokenState().containerSelectedFlag = 0;
            DWORD length = 0;
            if (asked != 0) CPGetProvParam(prov, asked, nullptr, &length, 0);
            const ALG_ID expected = asked ? row.after : row.before;
            EXPECT_EQ(open(prov, row.keySpec), expected == none ? failedWith(NTE_BAD_KEY) : succeeded());
            EXPECT_EQ(handle == untouchedHandle, expected == none);
            if (handle != untouchedHandle) expectValue(prov, handle, KP_ALGID, expected);
        }
    }
}

TEST_F(Keys, NameIsComparedExactlyAndTheFirstFittingKeyWins)
{
    auto& first = token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    std::ranges::fill(first.keyId, static_cast<unsigned char>(0xAB));
    const auto& second = token.withKeyPair(usageSigning, algorithmRsa2048);
    token.withKeyPair(usageBoth, algorithmRsa2048);
    std::string lowerCase;
    for (int i = 0; i < 16; ++i) lowerCase += "ab";
    for (const std::string& name : {lowerCase, std::string("AB"), keyName(first) + "A"}) {
        EXPECT_EQ(open(acquire(name), AT_KEYEXCHANGE), failedWith(NTE_BAD_KEY)) << name;
    }
    EXPECT_EQ(open(acquire(keyName(first)), AT_KEYEXCHANGE), succeeded());
    EXPECT_EQ(open(acquire(), AT_SIGNATURE), succeeded());
    EXPECT_EQ(hexOf(key().keyId), keyName(second));
    tokenState().containerSelectedFlag = 1;
    EXPECT_EQ(open(acquire(), AT_SIGNATURE), succeeded());
    EXPECT_EQ(hexOf(key().keyId), keyName(first)) << "a key-exchange key that comes earlier wins then";
    token.keyPairs.clear();
    EXPECT_EQ(open(acquire(), AT_SIGNATURE), failedWith(NTE_NO_KEY));
}

TEST_F(Keys, AlgorithmCodeGivesTheSizeAndEllipticCurvesAnAlgorithmOfTheirOwn)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    const HCRYPTPROV prov = acquire();
    for (const auto& [code, bits, algorithm] : {std::tuple<DWORD, DWORD, ALG_ID>{0, 0, CALG_RSA_SIGN},
                                                {1, 1024, CALG_RSA_SIGN},
                                                {4, 4096, CALG_RSA_SIGN},
                                                {5, 256, 0x2200},
                                                {6, 384, 0x2200},
                                                {7, 521, 0x2200},
                                                {8, 0, CALG_RSA_SIGN},
                                                {0xFFFFFFFF, 0, CALG_RSA_SIGN}}) {
        pair.algorithm = code;
        const HCRYPTKEY opened = userKey(prov);
        pair.algorithm = algorithmRsa2048;
        expectValue(prov, opened, KP_KEYLEN, bits);
        expectValue(prov, opened, KP_ALGID, algorithm);
        expectValue(prov, opened, KP_PERMISSIONS, 0);
    }
}

TEST_F(Keys, GenerationAsksForAUsageAloneAndTakesWhatTheTokenMade)
{
    token.onGenerate = [](QueltaKeyPair& made) {
        std::ranges::fill(made.label, 'L');
        setReference(made, counting(128));
        setPublicKey(made, counting(512, 0xC1));
        made.usage = usageBoth;
        made.hardware = 1;
    };
    const HCRYPTPROV prov = acquire();
    cachePin();
    for (const auto& [algorithm, flags, bits] : {std::tuple<ALG_ID, DWORD, DWORD>{CALG_RSA_SIGN, 0, 2048},
                                                 {CALG_RSA_KEYX, 0x04000000, 1024},
                                                 {CALG_RSA_KEYX, 0x0001FFFF, 1}}) {
        const bool sign = algorithm == CALG_RSA_SIGN;
        ASSERT_EQ(generate(prov, algorithm, flags), succeeded());
        EXPECT_THAT(token.takeCalls(), ElementsAre("generateKeyPair(TOKEN-1, 1234, 0, " + std::string(sign ? "1" : "2") + ", " +
                                                   std::string(32, '0') + ", )"));
        expectValue(prov, handle, KP_BLOCKLEN, bits);
        expectValue(prov, handle, KP_ALGID, algorithm);
    }
    EXPECT_EQ(hexOf(key().keyId), hexOf(Bytes(16, 0x77)));
    EXPECT_EQ(textOf(key().label.view()), std::string(128, 'L'));
    EXPECT_EQ(hexOf(key().objectId.view()), hexOf(counting(128)));
    EXPECT_EQ(hexOf(key().publicKey.view()), hexOf(counting(512, 0xC1)));
    EXPECT_EQ(key().keyUsage, usageBoth);
    EXPECT_EQ(key().keyPairFlag, 0) << "not among what is filled in";
    DWORD length = 0;
    expectFails(ERROR_NO_MORE_ITEMS, [&] { return CPGetProvParam(prov, PP_ENUMCONTAINERS, nullptr, &length, CRYPT_FIRST); });
}

TEST_F(Keys, RefusedGenerationClearsTheHandle)
{
    const HCRYPTPROV prov = acquire();
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPGenKey(prov, CALG_RSA_SIGN, 0, nullptr); });
    for (const ALG_ID algorithm : {AT_SIGNATURE, AT_KEYEXCHANGE, CALG_AES_128}) {
        EXPECT_EQ(generate(prov, algorithm), failedWith(NTE_BAD_ALGID));
        EXPECT_EQ(handle, 0U);
    }
    user.cancels();
    EXPECT_EQ(generate(prov, CALG_RSA_SIGN), failedWith(NTE_FAIL));
    EXPECT_EQ(handle, 0U);
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
    cachePin();
    token.willAnswer(Call::generateKeyPair, 33);
    EXPECT_EQ(generate(prov, CALG_RSA_KEYX), failedWith(NTE_TOKEN_KEYSET_STORAGE_FULL));
    EXPECT_EQ(handle, 0U);
}

TEST_F(Keys, ParametersFollowTheBufferRule)
{
    auto& pair = token.withKeyPair(usageBoth, algorithmRsa3072);
    const Bytes certificate = counting(300);
    token.withCertificateOf(pair, certificate);
    const HCRYPTPROV prov = acquire();
    const HCRYPTKEY opened = userKey(prov);
    for (const auto& [parameter, value] : {std::pair<DWORD, Bytes>{KP_PERMISSIONS, littleEndian({CRYPT_DECRYPT})},
                                           {KP_ALGID, littleEndian({CALG_RSA_SIGN})},
                                           {KP_BLOCKLEN, littleEndian({3072})},
                                           {KP_KEYLEN, littleEndian({3072})},
                                           {KP_CERTIFICATE, certificate}}) {
        expectHandsOut(keyParameter, value, asking(prov, opened, parameter));
        EXPECT_THAT(token.takeDeeds(), ::testing::Each("initDevice(TOKEN-1, true)"));
        expectFails(ERROR_INVALID_PARAMETER, [&] { return asking(prov, opened, parameter)(nullptr, nullptr); });
        EXPECT_THAT(token.takeDeeds(), IsEmpty());
    }
    expectFails(NTE_BAD_TYPE, [&] { return asking(prov, opened, KP_MODE)(nullptr, nullptr); });
}

TEST_F(Keys, FirstCertificateByLabelOrReferenceIsTheKeys)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    auto& record = token.withCertificate(counting(5));
    token.withCertificateOf(pair, counting(9));
    const HCRYPTPROV prov = acquire();
    const auto sizeFound = [&] {
        const HCRYPTKEY opened = userKey(prov);
        token.willAnswer(Call::initDevice, 5); // is not looked at
        return query(0, asking(prov, opened, KP_CERTIFICATE)).length;
    };
    EXPECT_EQ(sizeFound(), 9U);
    const std::string longest(128, 'L');
    setText(pair.label, longest);
    setText(record.label, longest);
    EXPECT_EQ(sizeFound(), 5U) << "the label that fills its field";
    setText(record.label, longest + "L");
    EXPECT_EQ(sizeFound(), 9U);
    setReference(pair, {});
    for (const std::int32_t empty : {0, -1, 129, INT_MIN, INT_MAX}) {
        record.keyReferenceLength = empty;
        EXPECT_EQ(sizeFound(), 5U) << "two empty references are one: " << empty;
    }
    token.certificates.clear();
    const HCRYPTKEY opened = userKey(prov);
    EXPECT_EQ(query(7, asking(prov, opened, KP_CERTIFICATE)), (Handed{failedWith(NTE_NOT_FOUND), 7, {}}));
}

TEST_F(Keys, VectorIsTakenByTheKeysThatHaveOneAndAllElseIsDropped)
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    token.withAesKey(encryptionAes256);
    const HCRYPTPROV prov = acquire();
    struct Row {
        const char* name;
        HCRYPTKEY key;
        std::size_t taken;
    };
    for (const Row& row : {Row{"triple DES", sessionKey(prov, CALG_3DES, Bytes(24, 1)), 8},
                           Row{"AES-256", sessionKey(prov, CALG_AES_256, Bytes(32, 1)), 16},
                           Row{"AES-128", sessionKey(prov, CALG_AES_128, Bytes(16, 1)), 0}, Row{"key pair", userKey(prov), 0},
                           Row{"came wrapped", importedKey(prov, keyBlob(11, CALG_AES_256, Bytes(24))), 0}}) {
        SCOPED_TRACE(row.name);
        tokenState().sharedIv.set(Bytes{9});
        const GuardedBuffer iv(counting(row.taken));
        expectSucceeds([&] { return CPSetKeyParam(prov, row.key, KP_IV, iv.data(), 0); });
        EXPECT_EQ(*tokenState().sharedIv.bytes(), row.taken == 0 ? Bytes{9} : counting(row.taken));
        const Attempt withoutData = [&] { return CPSetKeyParam(prov, row.key, KP_IV, nullptr, 0); };
        row.taken == 0 ? expectSucceeds(withoutData) : expectFails(ERROR_INVALID_PARAMETER, withoutData);

        const Bytes before = *tokenState().sharedIv.bytes();
        const GuardedBuffer value = GuardedBuffer::of(DWORD{77});
        expectSucceeds([&] { return CPSetKeyParam(prov, row.key, KP_PADDING, value.data(), 0); });
        expectLine(debug("Set key param default input value : 77"));
        expectSucceeds([&] { return CPSetKeyParam(prov, row.key, 0xFFFFFFFF, nullptr, 0); });
        EXPECT_EQ(*tokenState().sharedIv.bytes(), before);
    }
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
}

} // namespace quelta::test
