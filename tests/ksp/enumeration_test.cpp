#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspEnumeration : public KspTest {
protected:
    // The names of the algorithms that do one of these operations, each with its class and operations.
    std::vector<std::wstring> algorithms(DWORD operations)
    {
        DWORD count = 77;
        NCryptAlgorithmName* list = nullptr;
        EXPECT_EQ(ksp.EnumAlgorithms(provider, operations, &count, &list, 0), 0);
        EXPECT_NE(list, nullptr);
        std::vector<std::wstring> found;
        for (const auto& entry : std::span(list, count)) {
            found.push_back(entry.pszName + std::wstring(L" ") + std::to_wstring(entry.dwClass) + L" " +
                            std::to_wstring(entry.dwAlgOperations));
        }
        EXPECT_EQ(ksp.FreeBuffer(list), 0);
        return found;
    }

    // The next key, as name, algorithm and key spec; the status where there is none.
    std::wstring nextKey(void*& state)
    {
        NCryptKeyName* name = nullptr;
        const SECURITY_STATUS status = ksp.EnumKeys(provider, L"scope", &name, &state, 0);
        if (status != 0) return status == NTE_NO_MORE_ITEMS && !name ? L"no more" : L"failed";
        const std::wstring text = name->pszName + std::wstring(L" ") + name->pszAlgid + L" " +
                                  std::to_wstring(name->dwLegacyKeySpec) + L" " + std::to_wstring(name->dwFlags);
        EXPECT_EQ(ksp.FreeBuffer(name), 0);
        return text;
    }
};

TEST_F(KspEnumeration, AlgorithmsAreSelectedByAnySharedOperation)
{
    const auto all = ElementsAre(L"RSA 3 20", L"ECDSA_P256 5 16", L"ECDSA_P384 5 16", L"ECDSA_P521 5 16");
    EXPECT_THAT(algorithms(0), all);
    EXPECT_THAT(algorithms(NCRYPT_SIGNATURE_OPERATION), all);
    EXPECT_THAT(algorithms(NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_CIPHER_OPERATION), ElementsAre(L"RSA 3 20"));
    EXPECT_THAT(algorithms(NCRYPT_HASH_OPERATION), IsEmpty());
    for (const LPCWSTR name : {L"RSA", L"ECDSA_P521", L"SHA1"}) EXPECT_EQ(ksp.IsAlgSupported(0, name, 0), 0);
    for (const LPCWSTR name : {L"", L"rsa", L"SHA", L"SHA2561"}) EXPECT_EQ(ksp.IsAlgSupported(0, name, 0), NTE_NOT_SUPPORTED);
}

TEST_F(KspEnumeration, KeysAreThoseOfTheFirstLook)
{
    void* empty = nullptr;
    EXPECT_EQ(nextKey(empty), L"no more");
    EXPECT_NE(empty, nullptr);
    token.withKeyPair(usageSigning, algorithmRsa2048);
    EXPECT_EQ(nextKey(empty), L"no more") << "of a token that held none";
    token.withKeyPair(usageBoth, algorithmP256);
    token.takeCalls();
    void* state = nullptr;
    EXPECT_EQ(nextKey(state), L"01010101010101010101010101010101 RSA 2 0");
    token.withKeyPair(0, algorithmP521);
    void* later = nullptr;
    EXPECT_EQ(nextKey(state), L"02020202020202020202020202020202 ECDSA_P256 1 0");
    EXPECT_EQ(nextKey(state), L"no more");
    EXPECT_EQ(nextKey(state), L"no more") << "as often as it is asked";
    EXPECT_THAT(token.takeCalls(), ElementsAre("getKeyPairList(TOKEN-1)"));

    for (int skipped = 0; skipped < 2; ++skipped) nextKey(later);
    EXPECT_EQ(nextKey(later), L"03030303030303030303030303030303 ECDSA_P521 0 0");
    for (void* begun : {empty, state, later}) EXPECT_EQ(ksp.FreeBuffer(begun), 0);
}

TEST_F(KspEnumeration, MissingPlacesForTheAnswerAreRefusedBeforeTheTokenIsAsked)
{
    DWORD count = 0;
    NCryptAlgorithmName* list = nullptr;
    NCryptKeyName* name = nullptr;
    void* state = nullptr;
    EXPECT_EQ(ksp.EnumAlgorithms(provider, 0, nullptr, &list, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.EnumAlgorithms(provider, 0, &count, nullptr, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.EnumKeys(provider, nullptr, nullptr, &state, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.EnumKeys(provider, nullptr, &name, nullptr, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(state, nullptr);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

} // namespace quelta::test
