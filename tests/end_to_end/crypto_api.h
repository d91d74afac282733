// CryptoAPI as an application calls it, through advapi32. What an application would take for granted throws when it fails.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <string>

namespace quelta::test {

using Context = CryptContext;
using Key = CryptKey;
using Hash = CryptHash;

// On the container of the key with this label, or without a container.
Context openContext(const std::string& label = "");
// Gives the token's PIN by parameter, so that no dialog asks for it.
void usePin(const Context& context);

Key userKey(const Context& context, DWORD keySpec);
Key importKey(const Context& context, ByteView blob, const Key& unwrapping = Key());
// The last error, 0 for success.
DWORD tryImport(const Context& context, ByteView blob);
// bType, bVersion, reserved, aiKeyAlg: what every key blob begins with.
Bytes blobHeader(BYTE type, ALG_ID algorithm);

Hash hashOf(const Context& context, ALG_ID algorithm, ByteView data);
// All bytes here are as CryptoAPI has them, signatures and cipher texts least significant byte first.
Bytes sign(const Hash& hash);
// The last error, 0 for success.
DWORD trySign(const Context& context);
bool verifies(const Hash& hash, ByteView signature, const Key& key);
Bytes encrypt(const Key& key, ByteView plain, DWORD flags = 0);
Bytes decrypt(const Key& key, ByteView cipher, DWORD flags = 0);

} // namespace quelta::test
