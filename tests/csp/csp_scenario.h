#pragma once

#include "support/scenario.h"

#include "csp/entry_points.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

namespace quelta::test {

// The entry points of CryptoAPI, in the order of the published interface.
const std::vector<Function>& entryPoints();

// The entry points of CryptoAPI, recorded.
class CspCalls : public RecordedCalls {
public:
    explicit CspCalls(Recorder& recorder) : RecordedCalls(recorder, entryPoints()) {}

    HCRYPTPROV& context = opened_;

    HCRYPTPROV acquire(const char* container = nullptr, DWORD flags = 0)
    {
        const Handle made = (*this)("CPAcquireContext", {container, flags});
        return made == 0 ? 0 : context = made;
    }
    void signHash(HCRYPTHASH hash, const Place& place = {256, 256}, DWORD keySpec = AT_SIGNATURE, DWORD flags = 0)
    {
        (*this)("CPSignHash", {hash, keySpec, flags, place});
    }
    // `data` stands at the front of a buffer of this size.
    void encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize = 256, DWORD flags = 0)
    {
        (*this)("CPEncrypt", {key, flags, InPlace{data, bufferSize}});
    }
    void decrypt(HCRYPTKEY key, const Bytes& data = counting(256), DWORD flags = 0)
    {
        (*this)("CPDecrypt", {key, flags, InPlace{data, 0}});
    }
};

// A certificate whose signature is none: nobody on the way looks at it.
Bytes unsignedCertificate(const std::string& subject, const std::string& issuer);

class CspScenario : public Scenario {
protected:
    // Passes a flag that must be ignored.
    void open(const char* container = nullptr)
    {
        silently([&] { return csp.acquire(container, CRYPT_DELETEKEYSET); });
    }
    void openContainerOf(const QueltaKeyPair& pair) { open(keyName(pair).c_str()); }
    HCRYPTKEY userKey(DWORD keySpec = AT_SIGNATURE)
    {
        return silently([&] { return csp("CPGetUserKey", {keySpec}); });
    }
    // A symmetric key that the token's key-exchange key decrypts to these bytes.
    HCRYPTKEY sessionKey(ALG_ID algorithm, const Bytes& value);
    HCRYPTHASH newHash(ALG_ID algorithm = CALG_SHA_256)
    {
        return silently([&] { return csp("CPCreateHash", {algorithm}); });
    }
    // The digest is 01 02 ... 20.
    HCRYPTHASH finishedHash();

    // Notes the content of the key's record. No call tells all of it.
    void noteKey(HCRYPTKEY key);

    CspCalls csp{recorder};
};

} // namespace quelta::test
