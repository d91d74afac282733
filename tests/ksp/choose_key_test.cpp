#include "ksp/ksp_test.h"

namespace quelta::test {

// More than KSPOpenKey comes to, which has refused a name that no key bears.
TEST(KspChooseKey, ChoiceGoesByNameThenByUseThenByThereBeingOnlyOne)
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
