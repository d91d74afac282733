#include "ksp/function_table.h"

#include "ksp/entry.h"

namespace quelta {

namespace {

// The table is not const because the interface returns a pointer to non-const. Nobody should write to the table.
KeyStorageFunctionTable functionTable = {
    .version = {1, 0},
    .OpenProvider = KSPOpenProvider,
    .OpenKey = KSPOpenKey,
    .CreatePersistedKey = KSPCreatePersistedKey,
    .GetProviderProperty = KSPGetProviderProperty,
    .GetKeyProperty = KSPGetKeyProperty,
    .SetProviderProperty = KSPSetProviderProperty,
    .SetKeyProperty = KSPSetKeyProperty,
    .FinalizeKey = KSPFinalizeKey,
    .DeleteKey = KSPDeleteKey,
    .FreeProvider = KSPFreeProvider,
    .FreeKey = KSPFreeKey,
    .FreeBuffer = KSPFreeBuffer,
    .Encrypt = KSPEncrypt,
    .Decrypt = KSPDecrypt,
    .IsAlgSupported = KSPIsAlgSupported,
    .EnumAlgorithms = KSPEnumAlgorithms,
    .EnumKeys = KSPEnumKeys,
    .ImportKey = KSPImportKey,
    .ExportKey = KSPExportKey,
    .SignHash = KSPSignHash,
    .VerifySignature = KSPVerifySignature,
    .PromptUser = KSPPromptUser,
    .NotifyChangeKey = KSPNotifyChangeKey,
    .SecretAgreement = KSPSecretAgreement,
    .DeriveKey = KSPDeriveKey,
    .FreeSecret = KSPFreeSecret,
};

} // namespace

} // namespace quelta

using namespace quelta;

SECURITY_STATUS WINAPI GetKeyStorageInterface(LPCWSTR, KeyStorageFunctionTable** ppFunctionTable, DWORD)
{
    return slot("GetKeyStorageInterface", [&]() -> SECURITY_STATUS {
        if (!ppFunctionTable) return NTE_INVALID_PARAMETER;
        *ppFunctionTable = &functionTable;
        return statusDone;
    });
}
