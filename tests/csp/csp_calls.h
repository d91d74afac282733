#pragma once

#include "support/recorded_calls.h"

#include "csp/entry_points.h"

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

} // namespace quelta::test
