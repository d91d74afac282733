#include "encoding/public_key_form.h"

#include "encoding/rsa_public_key.h"
#include "log/log_writer.h"

namespace quelta {

Bytes publicKeyForDevice(ByteView publicKey, const PublicKeyTexts& texts)
{
    if (publicKey.empty() || isDer(publicKey)) {
        logDebug(texts.alreadyDer);
        return {publicKey.begin(), publicKey.end()};
    }
    logDebug(texts.rawModulus);
    return rawModulusToDer(publicKey);
}

} // namespace quelta
