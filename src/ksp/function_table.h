// Declares the functions in the slots of the key storage table.
#pragma once

#include "base/key_storage_table.h"

#include <type_traits>
#include <utility>

namespace quelta {

template <auto Member>
using SlotFunction = std::remove_pointer_t<std::remove_reference_t<decltype(std::declval<KeyStorageFunctionTable&>().*Member)>>;

SlotFunction<&KeyStorageFunctionTable::OpenProvider> KSPOpenProvider;
SlotFunction<&KeyStorageFunctionTable::OpenKey> KSPOpenKey;
SlotFunction<&KeyStorageFunctionTable::CreatePersistedKey> KSPCreatePersistedKey;
SlotFunction<&KeyStorageFunctionTable::GetProviderProperty> KSPGetProviderProperty;
SlotFunction<&KeyStorageFunctionTable::GetKeyProperty> KSPGetKeyProperty;
SlotFunction<&KeyStorageFunctionTable::SetProviderProperty> KSPSetProviderProperty;
SlotFunction<&KeyStorageFunctionTable::SetKeyProperty> KSPSetKeyProperty;
SlotFunction<&KeyStorageFunctionTable::FinalizeKey> KSPFinalizeKey;
SlotFunction<&KeyStorageFunctionTable::DeleteKey> KSPDeleteKey;
SlotFunction<&KeyStorageFunctionTable::FreeProvider> KSPFreeProvider;
SlotFunction<&KeyStorageFunctionTable::FreeKey> KSPFreeKey;
SlotFunction<&KeyStorageFunctionTable::FreeBuffer> KSPFreeBuffer;
SlotFunction<&KeyStorageFunctionTable::Encrypt> KSPEncrypt;
SlotFunction<&KeyStorageFunctionTable::Decrypt> KSPDecrypt;
SlotFunction<&KeyStorageFunctionTable::IsAlgSupported> KSPIsAlgSupported;
SlotFunction<&KeyStorageFunctionTable::EnumAlgorithms> KSPEnumAlgorithms;
SlotFunction<&KeyStorageFunctionTable::EnumKeys> KSPEnumKeys;
SlotFunction<&KeyStorageFunctionTable::ImportKey> KSPImportKey;
SlotFunction<&KeyStorageFunctionTable::ExportKey> KSPExportKey;
SlotFunction<&KeyStorageFunctionTable::SignHash> KSPSignHash;
SlotFunction<&KeyStorageFunctionTable::VerifySignature> KSPVerifySignature;
SlotFunction<&KeyStorageFunctionTable::PromptUser> KSPPromptUser;
SlotFunction<&KeyStorageFunctionTable::NotifyChangeKey> KSPNotifyChangeKey;
SlotFunction<&KeyStorageFunctionTable::SecretAgreement> KSPSecretAgreement;
SlotFunction<&KeyStorageFunctionTable::DeriveKey> KSPDeriveKey;
SlotFunction<&KeyStorageFunctionTable::FreeSecret> KSPFreeSecret;

} // namespace quelta

extern "C" SECURITY_STATUS WINAPI GetKeyStorageInterface(LPCWSTR pszProviderName,
                                                         quelta::KeyStorageFunctionTable** ppFunctionTable, DWORD dwFlags);
