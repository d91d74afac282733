#include "csp/csp_test.h"

#include "csp/context.h"

namespace quelta::test {

class ProviderParameters : public CspTest {
protected:
    ProviderParameters()
    {
        container = keyName(token.withKeyPair(usageBoth, algorithmRsa2048));
        prov = acquire(container);
    }
    HandOut asking(DWORD parameter, DWORD flags = 0) const
    {
        return [=, this](BYTE* data, DWORD* length) { return CPGetProvParam(prov, parameter, data, length, flags); };
    }
    // What is answered where there is room for anything; `value` is its first word.
    Called<BOOL> get(DWORD parameter, DWORD flags = 0)
    {
        DWORD length = sizeof value;
        return callWithLastError([&] { return asking(parameter, flags)(reinterpret_cast<BYTE*>(value.data()), &length); });
    }
    Called<BOOL> set(DWORD parameter, const BYTE* data) const
    {
        return callWithLastError([&] { return CPSetProvParam(prov, parameter, data, 0xFFFFFFFF); });
    }

    std::string container;
    HCRYPTPROV prov = 0;
    std::array<DWORD, 32> value{};
};

TEST_F(ProviderParameters, EachFollowsItsBufferRule)
{
    struct Row {
        const char* name;
        DWORD parameter;
        const BufferRule& rule;
        Bytes value;
    };
    const Bytes name = concat({littleEndian({8}), bytesOfText("RSA-Sign"), Bytes(11)});
    const Bytes longName = concat({littleEndian({23}), bytesOfText("RSA Signature Algorithm"), Bytes(16)});
    const Bytes sign = concat({littleEndian({CALG_RSA_SIGN}), littleEndian({2048}), name});
    const Bytes signEx = concat({littleEndian({CALG_RSA_SIGN}), littleEndian({2048}), littleEndian({1024}), littleEndian({4096}),
                                 littleEndian({0x20}), name, longName});
    for (const Row& row : {
             Row{"PP_ENUMALGS", PP_ENUMALGS, enumerated, sign},
             {"PP_ENUMALGS_EX", PP_ENUMALGS_EX, enumerated, signEx},
             {"PP_ENUMCONTAINERS", PP_ENUMCONTAINERS, moreDataButTrue, bytesOfText(container)},
             {"PP_IMPTYPE", PP_IMPTYPE, quietLength, littleEndian({9})},
             {"PP_VERSION", PP_VERSION, quietLength, littleEndian({0x100})},
             {"PP_CONTAINER", PP_CONTAINER, quietLength, bytesOfText(container)},
             {"PP_UNIQUE_CONTAINER", PP_UNIQUE_CONTAINER, quietLength, bytesOfText(container)},
             {"PP_PROVTYPE", PP_PROVTYPE, quietLength, littleEndian({PROV_RSA_FULL})},
             {"PP_KEYSTORAGE", PP_KEYSTORAGE, moreDataButTrue, littleEndian({9})},
             {"PP_KEYSET_TYPE", PP_KEYSET_TYPE, quietLength, littleEndian({4096})},
             {"PP_ADMIN_PIN", PP_ADMIN_PIN, moreDataButTrue, littleEndian({1})},
             {"PP_KEYEXCHANGE_PIN", PP_KEYEXCHANGE_PIN, moreDataButTrue, littleEndian({1})},
             {"PP_SIGNATURE_PIN", PP_SIGNATURE_PIN, moreDataButTrue, littleEndian({1})},
             {"PP_USE_HARDWARE_RNG", PP_USE_HARDWARE_RNG, moreDataButTrue, littleEndian({1})},
             {"PP_KEYSPEC", PP_KEYSPEC, moreDataButTrue, littleEndian({AT_SIGNATURE})},
             {"PP_ENUMEX_SIGNING_PROT", PP_ENUMEX_SIGNING_PROT, moreDataButTrue, littleEndian({1})},
         }) {
        SCOPED_TRACE(row.name);
        expectHandsOut(row.rule, row.value, asking(row.parameter, CRYPT_FIRST));
    }
}

TEST_F(ProviderParameters, NameIs34BytesBeforeACopyAnd33AfterIt)
{
    const Bytes name = bytesOfText("Quelta Cryptographic Provider CSP");
    EXPECT_EQ(handTo(room(34), asking(PP_NAME)), (Handed{succeeded(), 33, name}));
    EXPECT_EQ(handTo(room(40), asking(PP_NAME)), (Handed{succeeded(), 33, concat({name, room(6)})}));
    EXPECT_EQ(handTo(room(33), asking(PP_NAME)), (Handed{succeeded(), 34, room(33)}));
    EXPECT_EQ(query(0, asking(PP_NAME)), (Handed{succeeded(), 34, {}}));
}

TEST_F(ProviderParameters, RefusedOnesMoveAndSetNothing)
{
    for (const DWORD parameter : {DWORD{0}, DWORD{7}, DWORD{18}, DWORD{35}, DWORD{41}, DWORD{0xFFFFFFFF}})
        EXPECT_EQ(get(parameter), failedWith(NTE_BAD_TYPE)) << parameter;
    get(PP_ENUMALGS, CRYPT_FIRST);
    for (const DWORD parameter : {PP_ENUMALGS, PP_ENUMALGS_EX, PP_ENUMCONTAINERS, PP_CONTAINER, PP_CERTCHAIN, PP_KEYSPEC}) {
        expectFails(ERROR_INVALID_PARAMETER, [&] { return asking(parameter, CRYPT_NEXT)(nullptr, nullptr); });
    }
    EXPECT_EQ(tokenState().containerSelectedFlag, 0);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    EXPECT_EQ(get(PP_ENUMALGS, CRYPT_NEXT), succeeded());
    EXPECT_EQ(value[0], ALG_ID{CALG_RSA_KEYX});
}

TEST_F(ProviderParameters, AlgorithmsComeInOrderAndEndUntilTheFirstIsAskedForAgain)
{
    for (const DWORD parameter : {DWORD{PP_ENUMALGS}, DWORD{PP_ENUMALGS_EX}}) {
        std::vector<ALG_ID> found;
        for (DWORD flag = CRYPT_FIRST; get(parameter, flag) == succeeded(); flag = CRYPT_NEXT) found.push_back(value[0]);
        EXPECT_THAT(found, ElementsAre(CALG_RSA_SIGN, CALG_RSA_KEYX, CALG_SHA1, CALG_SHA_256));
        EXPECT_EQ(get(parameter, CRYPT_NEXT), failedWith(ERROR_NO_MORE_ITEMS)) << "still";
        for (const DWORD flags : {0, 3, 0x102}) EXPECT_EQ(get(parameter, flags), failedWith(ERROR_INVALID_PARAMETER)) << flags;
    }
}

TEST_F(ProviderParameters, SizeQueryOrShortBufferForTheNextItemUsesItUp)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    const std::string third = keyName(token.withKeyPair(usageSigning, algorithmRsa2048));
    prov = acquire(container);
    query(0, asking(PP_ENUMALGS, CRYPT_NEXT));
    EXPECT_EQ(get(PP_ENUMALGS_EX, CRYPT_NEXT), succeeded());
    EXPECT_EQ(value[0], ALG_ID{CALG_SHA1}) << "both enumerations share one position";
    EXPECT_EQ(value[2], 256U) << "SHA-1's minimum";
    handTo(room(31), asking(PP_ENUMALGS, CRYPT_NEXT));
    EXPECT_EQ(get(PP_ENUMALGS_EX, CRYPT_NEXT), failedWith(ERROR_NO_MORE_ITEMS));

    query(0, asking(PP_ENUMCONTAINERS, CRYPT_NEXT));
    EXPECT_EQ(handTo(room(33), asking(PP_ENUMCONTAINERS, CRYPT_NEXT)).buffer, bytesOfText(third));
    EXPECT_EQ(get(PP_ENUMCONTAINERS, CRYPT_NEXT), failedWith(ERROR_NO_MORE_ITEMS));
    EXPECT_EQ(get(PP_ENUMCONTAINERS, 0), failedWith(ERROR_INVALID_PARAMETER));
}

TEST_F(ProviderParameters, KeySpecComesFromTheUsageOfTheNamedKey)
{
    for (const auto& [usage, keySpec] :
         {std::pair<std::uint32_t, DWORD>{0, 0}, {1, AT_SIGNATURE}, {2, AT_KEYEXCHANGE}, {3, AT_SIGNATURE}, {4, 0}}) {
        token.keyPairs[0].usage = usage;
        ASSERT_EQ(get(PP_KEYSPEC), succeeded());
        EXPECT_EQ(value[0], keySpec) << usage;
    }
    for (const std::string& name : {std::string(), container + "0", container.substr(1)}) {
        prov = acquire(name);
        EXPECT_EQ(get(PP_KEYSPEC), failedWith(NTE_NO_KEY)) << name;
    }
}

TEST_F(ProviderParameters, GivenPinIsCachedOnceTheTokenAcceptsIt)
{
    const GuardedBuffer right(bytesOfText("1234"));
    const GuardedBuffer wrong(bytesOfText("wrong pin"));
    EXPECT_EQ(set(PP_ADMIN_PIN, right.data()), failedWith(NTE_BAD_TYPE));
    EXPECT_EQ(set(PP_SIGNATURE_PIN, nullptr), failedWith(ERROR_INVALID_PARAMETER));
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    for (const DWORD parameter : {DWORD{PP_KEYEXCHANGE_PIN}, DWORD{PP_SIGNATURE_PIN}}) {
        tokenState().pinCache.clear();
        EXPECT_EQ(set(parameter, right.data()), succeeded());
        EXPECT_THAT(token.takeCalls(), ElementsAre("validatePassword(TOKEN-1, 1234, 1, 0)"));
        token.willAnswer(Call::validatePassword, 48);
        EXPECT_EQ(set(parameter, wrong.data()), failedWith(NTE_KEYSET_ENTRY_BAD));
        EXPECT_EQ(cachedPin(), "1234") << "a refused PIN takes nothing away";
        token.takeCalls();
    }
}

TEST_F(ProviderParameters, WindowAndRandomNumberSwitchAreTakenAndTakenBack)
{
    void* const window = this;
    EXPECT_EQ(set(PP_CLIENT_HWND, GuardedBuffer::of(window).data()), succeeded());
    EXPECT_EQ(contextOf(prov)->ownerWindow, window);
    EXPECT_EQ(set(PP_CLIENT_HWND, nullptr), succeeded());
    EXPECT_EQ(contextOf(prov)->ownerWindow, nullptr);

    for (const DWORD wanted : {0, 5, 0, 0x100}) {
        EXPECT_EQ(set(PP_USE_HARDWARE_RNG, GuardedBuffer::of(wanted).data()), succeeded());
        EXPECT_EQ(get(PP_USE_HARDWARE_RNG), succeeded());
        EXPECT_EQ(value[0], wanted ? 1U : 0U);
    }
    EXPECT_EQ(set(PP_USE_HARDWARE_RNG, nullptr), failedWith(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(tokenState().hardwareRngFlag, 1) << "as it was";
}

} // namespace quelta::test
