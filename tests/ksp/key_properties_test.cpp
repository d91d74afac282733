#include "ksp/ksp_test.h"

#include "token/key_match.h"

namespace quelta::test {

using ::testing::ElementsAre;

namespace {

struct Property {
    LPCWSTR name;
    Bytes value;
};

} // namespace

class KspKeyProperties : public KspTest {
protected:
    void expectProperties(NCRYPT_KEY_HANDLE key, const std::vector<Property>& properties)
    {
        for (const auto& property : properties) {
            SCOPED_TRACE(testing::PrintToString(std::wstring(property.name)));
            expectGives(property.value, [&](PBYTE output, DWORD room, DWORD* result) {
                return ksp.GetKeyProperty(provider, key, property.name, output, room, result, 0);
            });
        }
    }

    void expectCertificate(NCRYPT_KEY_HANDLE key, const Bytes& certificate)
    {
        expectProperties(key, {{L"SmartCardKeyCertificate", certificate}});
    }

    SECURITY_STATUS askForCertificate(NCRYPT_KEY_HANDLE key, DWORD& size)
    {
        return ksp.GetKeyProperty(provider, key, L"SmartCardKeyCertificate", nullptr, 0, &size, 0);
    }
};

const Bytes supportedLengths = littleEndian({1024, 4096, 1024, 2048});

TEST_F(KspKeyProperties, ValuesFollowTheKeyAndOneBufferRule)
{
    const Bytes providerHandle = littleEndian({static_cast<std::uint32_t>(provider), static_cast<std::uint32_t>(provider >> 32)});
    expectProperties(opened(token.withKeyPair(usageBoth, algorithmRsa3072)),
                     {{L"Name", wideBytes(L"01010101010101010101010101010101")},
                      {L"Algorithm Name", wideBytes(L"RSA")},
                      {L"Algorithm Group", wideBytes(L"RSA")},
                      {L"Length", littleEndian({3072})},
                      {L"Lengths", supportedLengths},
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
                                                                                  {L"Lengths", supportedLengths},
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
    EXPECT_EQ(ksp.GetKeyProperty(provider, key, L"length", nullptr, 0, &size, 0), NTE_NOT_SUPPORTED);
    EXPECT_EQ(ksp.GetKeyProperty(provider, key, L"Security Descr", nullptr, 0, &size, 0), NTE_NOT_SUPPORTED);
    EXPECT_EQ(size, 77u);
    expectLog({debug("KSPGetKeyProperty"), debug("KSP: GetKeyProperty: length"), debug("KSP: Unsupported key property"),
               debug("KSPGetKeyProperty"), debug("KSP: GetKeyProperty: Security Descr")});
    EXPECT_EQ(ksp.GetKeyProperty(provider, 0, L"Length", nullptr, 0, &size, 0), NTE_INVALID_HANDLE);
    EXPECT_EQ(ksp.GetKeyProperty(provider, key, nullptr, nullptr, 0, &size, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.GetKeyProperty(provider, key, L"Length", nullptr, 0, nullptr, 0), NTE_INVALID_PARAMETER);
}

TEST_F(KspKeyProperties, CertificateIsTheFirstOfTheLabelOrTheReference)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setText(pair.label, "mine");
    // An earlier one with the key's own public key does not win over a later one with its label.
    const Bytes publicKey(publicKeyOf(pair).begin(), publicKeyOf(pair).end());
    token.withCertificate(counting(40));
    token.detailsGive(counting(40), publicKey);
    setText(token.withCertificate(counting(50)).label, "mine but longer");
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
    setReference(referred, joined({Bytes(keyReferenceOf(pair).begin(), keyReferenceOf(pair).end()), {0}}));
    expectCertificate(key, counting(40));
}

TEST_F(KspKeyProperties, CertificateIsLookedForOnAFreshlyOpenedTokenWhateverThatAnswers)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    token.withCertificate(counting(40)).certificateLength = 3073;
    token.withCertificate(counting(50));
    token.withCertificate(counting(60));
    token.detailsGive(counting(60), {publicKeyOf(pair).begin(), publicKeyOf(pair).end()});
    const auto key = opened(pair);
    token.willAnswer(Call::initDevice, 21);
    DWORD size = 0;
    EXPECT_EQ(askForCertificate(key, size), 0);
    EXPECT_EQ(size, 60u);
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("initDevice(TOKEN-1, true)", "getCertificateList(TOKEN-1)", "getCertificateDetails(empty)",
                            "getCertificateDetails(" + hexText(counting(50)) + ")",
                            "getCertificateDetails(" + hexText(counting(60)) + ")"));
}

TEST_F(KspKeyProperties, KeyWithoutPublicKeyMatchesNoCertificateWithoutOne)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setPublicKey(pair, {});
    token.withCertificate(counting(40));
    token.detailsGive(counting(40), {});
    DWORD size = 77;
    const auto key = opened(pair);
    EXPECT_EQ(askForCertificate(key, size), NTE_NOT_FOUND) << "though it is a size query";
    EXPECT_EQ(size, 77u);
    expectLog({debug("KSPGetKeyProperty"), debug("KSP: GetKeyProperty: SmartCardKeyCertificate"),
               error("KSP: Certificate not found for key")});
}

} // namespace quelta::test
