#include "ksp/ksp_test.h"

#include "token/key_match.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspKeySettings : public KspTest {
protected:
    NCRYPT_KEY_HANDLE anyKey() { return opened(token.withKeyPair(usageBoth, algorithmRsa1024)); }
    static Bytes iv() { return *tokenState().sharedIv.bytes(); }
    // The text without its zero, so that reading on would leave the accessible page.
    static Bytes unterminated(std::wstring_view text) { return GuardedBuffer(wideBytes(text)).first(text.size() * 2); }
};

TEST_F(KspKeySettings, CertificateGoesToTheTokenWithAllThatTellsItsKey)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    std::ranges::fill(pair.label, 'L');
    const auto key = opened(pair);
    cachePin();
    const Bytes certificate = counting(3072);
    QueltaCertificate request{};
    token.onImportCertificate = [&](const QueltaCertificate& asked) { request = asked; };
    EXPECT_EQ(setProperty(key, L"SmartCardKeyCertificate", certificate), 0);
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("importCertificate(TOKEN-1, 1234, 01010101010101010101010101010101, " + hexOf(certificate) + ")"));
    EXPECT_TRUE(std::ranges::equal(keyReferenceOf(request), Bytes{0xA0, 1}));
    EXPECT_EQ(labelOf(request), std::string(128, 'L'));
    token.willAnswer(Call::importCertificate, 8);
    EXPECT_EQ(setProperty(key, L"SmartCardKeyCertificate", {0x30}), NTE_INTERNAL_ERROR);
    EXPECT_EQ(log.takeLines().back(), error("KSP: Import certificate failed: 8"));
}

TEST_F(KspKeySettings, CertificateThatCannotBeStoredIsRefusedBeforeThePinIsAskedFor)
{
    const auto key = anyKey();
    EXPECT_EQ(setProperty(key, L"SmartCardKeyCertificate", counting(3073)), NTE_INVALID_PARAMETER);
    EXPECT_EQ(setProperty(key, L"SmartCardKeyCertificate", {}), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"SmartCardKeyCertificate", nullptr, 5, 0), NTE_INVALID_PARAMETER);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    user.cancels();
    EXPECT_EQ(setProperty(key, L"SmartCardKeyCertificate", counting(5)), NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
}

TEST_F(KspKeySettings, VectorMustFitTheCipherOfTheKeyWhereThatIsKnown)
{
    const struct {
        std::size_t keySize;
        std::size_t size;
        bool accepted;
    } rows[] = {
        {16, 16, true}, {16, 8, false},  {32, 16, true}, {32, 17, false},
        {24, 8, true},  {24, 16, false}, {0, 1, true},   {0, 100, true},
    };
    cachePin();
    for (const auto& row : rows) {
        tokenState().sharedIv.set(counting(3));
        const auto key = row.keySize ? clearKey(counting(row.keySize)) : anyKey();
        EXPECT_EQ(setProperty(key, L"IV", counting(row.size, 9)), row.accepted ? 0 : NTE_INVALID_PARAMETER);
        EXPECT_EQ(iv(), row.accepted ? counting(row.size, 9) : counting(3)) << row.size << " for " << row.keySize;
        EXPECT_EQ(setProperty(key, L"IV", {}), 0);
        EXPECT_THAT(iv(), IsEmpty());
    }
    tokenState().sharedIv.set(counting(16));
    EXPECT_EQ(ksp.SetKeyProperty(provider, anyKey(), L"IV", nullptr, 16, 0), 0);
    EXPECT_THAT(iv(), IsEmpty());
}

TEST_F(KspKeySettings, ChainingModeIsReadUpToItsZeroOrItsEnd)
{
    const auto key = anyKey();
    const std::pair<Bytes, LPCWSTR> rows[] = {
        {wideBytes(L"ChainingModeECB"), L"ChainingModeECB"},
        {unterminated(L"ChainingModeCBC"), L"ChainingModeCBC"},
        {concat({unterminated(L"ChainingModeECB"), {0}}), L"ChainingModeECB"},
        {concat({wideBytes(L"ChainingModeCBC"), {'x'}}), L"ChainingModeCBC"},
        {{}, L"ChainingModeCBC"},
    };
    for (const auto& [input, mode] : rows) {
        EXPECT_EQ(setProperty(key, L"ChainingMode", input), 0) << input.size();
        EXPECT_EQ(textProperty(key, L"ChainingMode"), mode) << input.size();
    }
    for (const Bytes& input : {unterminated(L"ChainingModeEC"), wideBytes(L"ChainingModeECB "), Bytes{'E'}}) {
        EXPECT_EQ(setProperty(key, L"ChainingMode", input), NTE_NOT_SUPPORTED) << input.size();
        EXPECT_EQ(textProperty(key, L"ChainingMode"), L"ChainingModeCBC");
    }
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"ChainingMode", nullptr, 32, 0), 0);
}

TEST_F(KspKeySettings, UsageIsTakenFromItsTwoBits)
{
    const auto key = created(L"RSA");
    const std::pair<Bytes, DWORD> rows[] = {
        {littleEndian({1}), 1},
        {littleEndian({0xFFFFFFFC}), 1},
        {littleEndian({0x102}), 2},
        {{1, 0, 0}, 2},
        {littleEndian({0xFFFFFFFF}), 3},
        {littleEndian({0}), 3},
        {{}, 3},
    };
    for (const auto& [input, usage] : rows) {
        EXPECT_EQ(setProperty(key, L"Key Usage", input), 0);
        EXPECT_EQ(dwordProperty(key, L"Key Usage"), usage) << hexOf(input);
    }
}

TEST_F(KspKeySettings, ShortInputsChangeNothingAndAreNoFailure)
{
    const auto key = created(L"RSA");
    EXPECT_EQ(setProperty(key, L"Length", littleEndian({123456789})), 0);
    EXPECT_EQ(setProperty(key, L"HWND Handle", counting(8)), 0);
    for (const std::size_t size : {0, 1, 3}) EXPECT_EQ(setProperty(key, L"Length", Bytes(size)), 0);
    for (const std::size_t size : {0, 4, 7}) EXPECT_EQ(setProperty(key, L"HWND Handle", Bytes(size)), 0);
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"Length", nullptr, 4, 0), 0);
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"HWND Handle", nullptr, 8, 0), 0);
    EXPECT_EQ(dwordProperty(key, L"Length"), 123456789u);
    EXPECT_EQ(providerOf(provider)->hwnd, 0x0807060504030201u);
    EXPECT_EQ(setProperty(key, L"Lengths", Bytes(16)), NTE_NOT_SUPPORTED);
    EXPECT_EQ(ksp.SetKeyProperty(provider, 0, L"Length", nullptr, 0, 0), NTE_INVALID_HANDLE);
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, nullptr, nullptr, 0, 0), NTE_INVALID_PARAMETER);
}

TEST_F(KspKeySettings, LengthsTheTokenCouldNotCountAreRefusedUnread)
{
    const auto key = anyKey();
    BYTE byte = 0;
    for (const LPCWSTR name : {L"IV", L"ChainingMode", L"SmartCardKeyCertificate"}) {
        EXPECT_EQ(ksp.SetKeyProperty(provider, key, name, &byte, 0x80000000, 0), NTE_INVALID_PARAMETER);
    }
}

} // namespace quelta::test
