#include "ksp/ksp_scenario.h"

#include "encoding/rsa_public_key.h"
#include "token/key_algorithms.h"
#include "token/record_fields.h"

namespace quelta::test {

Bytes cngBlob(const Bytes& key)
{
    const auto size = static_cast<std::uint32_t>(key.size());
    return concat({littleEndian({0x31415352, size * 8, 3, size, 0, 0}), {1, 0, 1}, key});
}

void KspScenario::open()
{
    const Recorder::Pause pause(recorder);
    require(ksp.openProvider() != 0, "KSPOpenProvider");
}

NCRYPT_KEY_HANDLE KspScenario::opened(const QueltaKeyPair& pair)
{
    const Recorder::Pause pause(recorder);
    const std::string name = keyName(pair);
    const NCRYPT_KEY_HANDLE key = ksp.openKey(std::wstring(name.begin(), name.end()).c_str());
    require(key != 0, "KSPOpenKey");
    const std::string word = "of " + name.substr(0, 2) + "..";
    if (!publicKeyOf(pair).empty()) recorder.call(rawModulusToDer(publicKeyOf(pair)), "DER of the modulus " + word);
    if (!publicKeyOf(pair).empty()) recorder.call(publicKeyOf(pair), "the public key " + word);
    return key;
}

NCRYPT_KEY_HANDLE KspScenario::created(LPCWSTR algorithm, DWORD legacyKeySpec)
{
    const Recorder::Pause pause(recorder);
    const NCRYPT_KEY_HANDLE key = ksp.createPersistedKey(algorithm, L"a name", legacyKeySpec);
    require(key != 0, "KSPCreatePersistedKey");
    return key;
}

NCRYPT_KEY_HANDLE KspScenario::imported(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE with)
{
    const Recorder::Pause pause(recorder);
    const NCRYPT_KEY_HANDLE key = ksp.importKey(type, blob, with);
    require(key != 0, "KSPImportKey");
    return key;
}

NCRYPT_KEY_HANDLE KspScenario::clearKey(const Bytes& value)
{
    token.plain.bytes = value;
    const auto with = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    const auto key = imported(L"OpaqueTransport", Bytes(256), with);
    token.plain = {};
    return key;
}

} // namespace quelta::test
