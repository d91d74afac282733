#include "ksp/ksp_test.h"

#include "token/handles.h"

namespace quelta::test {

namespace {

struct Slot {
    const char* name;
    // With every argument null, a key handle and pointers among them.
    SECURITY_STATUS answer;
};

// In the order in which a caller finds them.
constexpr Slot slots[] = {
    {"KSPOpenProvider", NTE_INVALID_PARAMETER},
    {"KSPOpenKey", NTE_INVALID_HANDLE},
    {"KSPCreatePersistedKey", NTE_INVALID_HANDLE},
    {"KSPGetProviderProperty", NTE_INVALID_HANDLE},
    {"KSPGetKeyProperty", NTE_INVALID_HANDLE},
    {"KSPSetProviderProperty", NTE_INVALID_HANDLE},
    {"KSPSetKeyProperty", NTE_INVALID_HANDLE},
    {"KSPFinalizeKey", NTE_INVALID_HANDLE},
    {"KSPDeleteKey", NTE_INVALID_HANDLE},
    {"KSPFreeProvider", NTE_INVALID_HANDLE},
    {"KSPFreeKey", 0},
    {"KSPFreeBuffer", 0},
    {"KSPEncrypt", NTE_INVALID_HANDLE},
    {"KSPDecrypt", NTE_INVALID_HANDLE},
    {"KSPIsAlgSupported", NTE_INVALID_PARAMETER},
    {"KSPEnumAlgorithms", NTE_INVALID_HANDLE},
    {"KSPEnumKeys", NTE_INVALID_HANDLE},
    {"KSPImportKey", NTE_INVALID_HANDLE},
    {"KSPExportKey", NTE_INVALID_HANDLE},
    {"KSPSignHash", NTE_INVALID_HANDLE},
    {"KSPVerifySignature", NTE_INVALID_HANDLE},
    {"KSPPromptUser", NTE_INVALID_HANDLE},
    {"KSPNotifyChangeKey", NTE_NOT_SUPPORTED},
    {"KSPSecretAgreement", NTE_NOT_SUPPORTED},
    {"KSPDeriveKey", NTE_NOT_SUPPORTED},
    {"KSPFreeSecret", 0},
};
constexpr std::size_t freeProviderSlot = 9;
constexpr std::size_t firstRefusedSlot = 22;

// As many arguments as any slot takes; the calling convention lets the callee ignore what is left over.
using AnySlot = SECURITY_STATUS(WINAPI*)(std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t,
                                         std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t);

// What a caller finds there that knows the published layout alone.
template <class T>
T atOffset(const KeyStorageFunctionTable& table, std::size_t offset)
{
    T value{};
    std::memcpy(&value, reinterpret_cast<const unsigned char*>(&table) + offset, sizeof value);
    return value;
}

AnySlot slotAt(const KeyStorageFunctionTable& table, std::size_t index)
{
    return atOffset<AnySlot>(table, 8 + index * sizeof(AnySlot));
}

} // namespace

using KspFunctionTable = KspTest;

TEST_F(KspFunctionTable, EverySlotStandsWhereCngLooksForIt)
{
    EXPECT_EQ(atOffset<std::uint16_t>(ksp, 0), 1);
    EXPECT_EQ(atOffset<std::uint16_t>(ksp, 2), 0);
    for (std::size_t i = 0; i < std::size(slots); ++i) {
        EXPECT_EQ(slotAt(ksp, i)(0, 0, 0, 0, 0, 0, 0, 0, 0), slots[i].answer) << slots[i].name;
        const auto lines = log.takeLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), debug(slots[i].name));
    }
    EXPECT_EQ(&keyStorageTable(), &ksp) << "one table for the process";
    EXPECT_EQ(GetKeyStorageInterface(L"", nullptr, 0), NTE_INVALID_PARAMETER);
}

TEST_F(KspFunctionTable, ProviderThatIsNotOpenIsRefusedByAllThatRefuseNone)
{
    KspProvider closed;
    const auto handle = reinterpret_cast<std::uintptr_t>(&closed);
    for (std::size_t i = 1; i < std::size(slots); ++i) {
        if (slots[i].answer != NTE_INVALID_HANDLE || i == freeProviderSlot) continue;
        EXPECT_EQ(slotAt(ksp, i)(handle, 0, 0, 0, 0, 0, 0, 0, 0), slots[i].answer) << slots[i].name;
    }
    EXPECT_EQ(ksp.FreeProvider(handOut(std::make_unique<KspProvider>())), 0) << "freed all the same";
}

TEST_F(KspFunctionTable, RefusedSlotsLookAtNoArgument)
{
    for (std::size_t i = firstRefusedSlot; i < std::size(slots); ++i) {
        EXPECT_EQ(slotAt(ksp, i)(16, 16, 16, 16, 16, 16, 16, 16, 16), slots[i].answer) << slots[i].name;
    }
}

} // namespace quelta::test
