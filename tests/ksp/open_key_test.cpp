#include "ksp/ksp_test.h"

namespace quelta::test {

class KspOpenKey : public KspTest {
protected:
    SECURITY_STATUS open(LPCWSTR name) { return ksp.OpenKey(provider, &handle, name, 0, 0); }

    // Not a handle: what a failure must leave.
    NCRYPT_KEY_HANDLE handle = 7;
};

TEST_F(KspOpenKey, OnlyTheExactUpperCaseNameOpens)
{
    setText(token.withKeyPair(usageSigning, algorithmRsa2048).label, "label");
    std::ranges::fill(token.withKeyPair(usageKeyExchange, algorithmP384).keyId, static_cast<unsigned char>(0xAB));
    for (const LPCWSTR name : {L"", L"label", L"abababababababababababababababab", L"ABABABABABABABABABABABABABABABA",
                               L"ABABABABABABABABABABABABABABABAB0", static_cast<LPCWSTR>(nullptr)}) {
        EXPECT_EQ(open(name), NTE_NO_KEY);
    }
    EXPECT_EQ(handle, 7u);
    EXPECT_EQ(ksp.OpenKey(provider, nullptr, L"A", 0, 0), NTE_INVALID_PARAMETER);
    std::wstring name(L"ABABABABABABABABABABABABABABABAB");
    name.front() += 0x4E00;
    ASSERT_EQ(open(name.c_str()), 0) << "of each unit the low byte counts";
    owned(handle);
    EXPECT_EQ(dwordProperty(handle, L"Length"), 384u);
    EXPECT_EQ(dwordProperty(handle, L"Key Usage"), 1u);
}

TEST_F(KspOpenKey, NameThatNoKeyBearsSaysWhichOnesThereAre)
{
    EXPECT_EQ(open(L"A"), NTE_NO_KEY);
    EXPECT_EQ(log.takeLines().back(), error("KSP: No keys found on token"));
    token.withKeyPair(usageSigning, algorithmRsa2048);
    EXPECT_EQ(open(L"A"), NTE_NO_KEY) << "though it is the only key";
    expectLog({debug("KSPOpenKey"), debug("KSP: Opening key: A"), debug("KSP: Available key: 01010101010101010101010101010101"),
               error("KSP: Input key not found on token: A")});
}

TEST_F(KspOpenKey, EarlierKeyWinsByItsLabelOnceAKeyHasTheName)
{
    setText(token.withKeyPair(usageSigning, algorithmRsa1024).label, "02020202020202020202020202020202");
    token.withKeyPair(usageSigning, algorithmRsa4096);
    ASSERT_EQ(open(L"02020202020202020202020202020202"), 0);
    owned(handle);
    EXPECT_EQ(textProperty(handle, L"Name"), L"01010101010101010101010101010101");
    EXPECT_EQ(dwordProperty(handle, L"Length"), 1024u);
}

TEST_F(KspOpenKey, ChoiceGoesByNameThenByUseThenByThereBeingOnlyOne)
{
    const auto pair = [](unsigned char id, std::uint32_t usage, std::string_view label = "") {
        QueltaKeyPair made{};
        std::ranges::fill(made.keyId, id);
        made.usage = usage;
        setText(made.label, label);
        return made;
    };
    const std::vector<QueltaKeyPair> three = {pair(1, 0), pair(2, usageKeyExchange, "x"), pair(3, usageBoth, "x")};
    const std::vector<QueltaKeyPair> one = {pair(4, usageSigning)};
    const struct {
        const std::vector<QueltaKeyPair>& pairs;
        const char* name;
        DWORD legacyKeySpec;
        int chosen;
    } rows[] = {
        {three, "03030303030303030303030303030303", AT_KEYEXCHANGE, 2},
        {three, "x", AT_SIGNATURE, 1},
        {three, "?", AT_SIGNATURE, 2},
        {three, "?", AT_KEYEXCHANGE, 1},
        {three, "?", 0, -1},
        {three, "?", 3, -1},
        {one, "?", AT_KEYEXCHANGE, 0},
        {one, "?", 0, 0},
    };
    for (const auto& row : rows) {
        const auto* chosen = chooseKey(row.pairs, row.name, row.legacyKeySpec);
        EXPECT_EQ(chosen ? static_cast<int>(chosen - row.pairs.data()) : -1, row.chosen) << row.name << row.legacyKeySpec;
    }
}

} // namespace quelta::test
