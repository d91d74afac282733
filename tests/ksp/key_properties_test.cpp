#include "ksp/ksp_test.h"

#include "token/key_match.h"

namespace quelta::test {

using ::testing::ElementsAre;

class KspKeyProperties : public KspTest {
protected:
    void expectProperties(NCRYPT_KEY_HANDLE key, const std::vector<std::pair<std::wstring, Bytes>>& properties)
    {
        for (const auto& [name, value] : properties) {
            SCOPED_TRACE(testing::PrintToString(name));
            expectGives(value, [&](PBYTE output, DWORD room, DWORD* result) {
                return ksp.GetKeyProperty(provider, key, name.c_str(), output, room, result, 0);
            });
        }
    }

    void expectCertificate(NCRYPT_KEY_HANDLE key, const Bytes& certificate)
    {
        expectProperties(key, {{L"SmartCardKeyCertificate", certificate}});
    }

    SECURITY_STATUS ask(NCRYPT_KEY_HANDLE key, LPCWSTR name, DWORD* size)
    {
        return ksp.GetKeyProperty(provider, key, name, nullptr, 0, size, 0);
    }
};

TEST_F(KspKeyProperties, ValuesFollowTheKeyAndOneBufferRule)
{
    const Bytes providerHandle = littleEndian({static_cast<std::uint32_t>(provider), static_cast<std::uint32_t>(provider >> 32)});
    expectProperties(opened(token.withKeyPair(usageBoth, algorithmRsa3072)),
                     {{L"Algorithm Name", wideBytes(L"RSA")},
                      {L"Algorithm Group", wideBytes(L"RSA")},
                      {L"Length", littleEndian({3072})},
                      {L"Lengths", littleEndian({1024, 4096, 1024, 2048})},
                      {L"Key Usage", littleEndian({3})},
                      {L"Export Policy", littleEndian({1})},
                      {L"Block Length", littleEndian({384})},
                      {L"Key Type", littleEndian({0})},
                      {L"Unique Name", wideBytes(L"01010101010101010101010101010101")},
                      {L"Provider Handle", providerHandle},
                      {L"ChainingMode", wideBytes(L"ChainingModeCBC")}});
    expectProperties(opened(token.withKeyPair(usageKeyExchange, algorithmP521)), {{L"Algorithm Name", wideBytes(L"ECDSA_P521")},
                                                                                  {L"Algorithm Group", wideBytes(L"ECDSA")},
                                                                                  {L"Length", littleEndian({521})},
                                                                                  {L"Key Usage", littleEndian({1})},
                                                                                  {L"Block Length", littleEndian({65})}});
    expectProperties(opened(token.withKeyPair(4, 8)), {{L"Algorithm Name", wideBytes(L"RSA")},
                                                       {L"Algorithm Group", wideBytes(L"RSA")},
                                                       {L"Length", littleEndian({0})},
                                                       {L"Key Usage", littleEndian({0})}});
}

TEST_F(KspKeyProperties, RefusedNamesLeaveTheSize)
{
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    DWORD size = 77;
    EXPECT_EQ(ask(key, L"length", &size), NTE_NOT_SUPPORTED);
    EXPECT_EQ(ask(key, L"Security Descr", &size), NTE_NOT_SUPPORTED);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(ask(0, L"Length", &size), NTE_INVALID_HANDLE);
    EXPECT_EQ(ask(key, nullptr, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ask(key, L"Length", nullptr), NTE_INVALID_PARAMETER);
}

TEST_F(KspKeyProperties, CertificateIsTheFirstOfTheLabelOrTheReference)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setText(pair.label, "mine");
    // An earlier one with the key's own public key does not win over a later one with its label.
    token.withCertificate(counting(40));
    token.detailsGive(counting(40), publicKeyBytes(pair));
    QueltaCertificate& labelled = token.withCertificate(counting(60));
    setText(labelled.label, "mine");
    QueltaCertificate& referred = token.withCertificate(counting(70));
    setReference(referred, keyReferenceOf(pair));
    const auto key = opened(pair);
    expectCertificate(key, counting(60));
    setText(labelled.label, "other");
    expectCertificate(key, counting(70));
    EXPECT_THAT(token.takeCalls(), testing::Each(testing::AnyOf("initDevice(TOKEN-1, true)", "getCertificateList(TOKEN-1)")))
        << "no certificate is read while one is known to be the key's";
    setReference(referred, Bytes{9});
    expectCertificate(key, counting(40));
}

TEST_F(KspKeyProperties, CertificateIsLookedForOnAFreshlyOpenedTokenWhateverThatAnswers)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    token.withCertificate(counting(40)).certificateLength = 3073;
    token.withCertificate(counting(50));
    token.withCertificate(counting(60));
    token.detailsGive(counting(60), publicKeyBytes(pair));
    const auto key = opened(pair);
    token.willAnswer(Call::initDevice, 21);
    DWORD size = 0;
    EXPECT_EQ(ask(key, L"SmartCardKeyCertificate", &size), 0);
    EXPECT_EQ(size, 60u);
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("initDevice(TOKEN-1, true)", "getCertificateList(TOKEN-1)", "getCertificateDetails(empty)",
                            "getCertificateDetails(" + hexOf(counting(50)) + ")",
                            "getCertificateDetails(" + hexOf(counting(60)) + ")"));
}

TEST_F(KspKeyProperties, KeyWithoutPublicKeyMatchesNoCertificateWithoutOne)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setPublicKey(pair, {});
    token.withCertificate(counting(40));
    token.detailsGive(counting(40), {});
    DWORD size = 77;
    const auto key = opened(pair);
    EXPECT_EQ(ask(key, L"SmartCardKeyCertificate", &size), NTE_NOT_FOUND) << "though it is a size query";
    EXPECT_EQ(size, 77u);
}

} // namespace quelta::test
