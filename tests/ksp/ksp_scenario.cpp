#include "ksp/ksp_scenario.h"

#include "encoding/rsa_public_key.h"
#include "ksp/key.h"
#include "token/record_fields.h"

namespace quelta::test {

Bytes cngBlob(const Bytes& key)
{
    const auto size = static_cast<std::uint32_t>(key.size());
    return concat({littleEndian({0x31415352, size * 8, 3, size, 0, 0}), Bytes{1, 0, 1}, key});
}

NCRYPT_KEY_HANDLE KspScenario::opened(const QueltaKeyPair& pair)
{
    const auto key = silently([&] { return ksp("KSPOpenKey", {wideKeyName(pair).c_str()}); });
    const std::string word = "of " + toHex(pair.keyId).substr(0, 2) + "..";
    if (publicKeyOf(pair).empty()) return key;
    recorder.call(rawModulusToDer(publicKeyOf(pair)), "DER of the modulus " + word);
    recorder.call(publicKeyOf(pair), "the public key " + word);
    return key;
}

NCRYPT_KEY_HANDLE KspScenario::clearKey(const Bytes& value)
{
    const auto with = withKey(algorithmRsa2048, usageKeyExchange);
    token.plain.bytes = value;
    const auto key = silently([&] { return ksp("KSPImportKey", {with, L"OpaqueTransport", Bytes(256)}); });
    token.plain = {};
    return key;
}

} // namespace quelta::test
