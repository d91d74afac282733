#pragma once

#include "support/scenario.h"

#include "csp/entry_points.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

namespace quelta::test {

// Returns the entry points of CryptoAPI, in the order of the published interface.
const std::vector<Function>& entryPoints();

// Calls the entry points of CryptoAPI, and records the calls.
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
    // The buffer has this size and begins with `data`.
    void encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize = 256, DWORD flags = 0)
    {
        (*this)("CPEncrypt", {key, flags, InPlace{data, bufferSize}});
    }
    void decrypt(HCRYPTKEY key, const Bytes& data = counting(256), DWORD flags = 0)
    {
        (*this)("CPDecrypt", {key, flags, InPlace{data, 0}});
    }
};

// Returns a certificate with a meaningless signature, which the tested code does not check.
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
    // Imports a symmetric key. The token's key-exchange key decrypts it to these bytes.
    HCRYPTKEY sessionKey(ALG_ID algorithm, const Bytes& value);
    HCRYPTHASH newHash(ALG_ID algorithm = CALG_SHA_256)
    {
        return silently([&] { return csp("CPCreateHash", {algorithm}); });
    }
    // Returns a hash whose digest was set to the bytes 01 02 ... 20.
    HCRYPTHASH finishedHash();

    // Notes the content of the key's record, which no call tells in full.
    void noteKey(HCRYPTKEY key);

    CspCalls csp{recorder};
};

} // namespace quelta::test
