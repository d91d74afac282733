#pragma once

#include "support/call_with_last_error.h"
#include "support/recorded_calls.h"

#include <wincrypt.h>

namespace quelta::test {

// The entry points of CryptoAPI, recorded. What they hand out is freed at the end, if it is not freed before.
class CspCalls : public RecordedCalls {
public:
    explicit CspCalls(Recorder& recorder) : RecordedCalls(recorder) {}
    ~CspCalls();
    CspCalls(const CspCalls&) = delete;
    CspCalls& operator=(const CspCalls&) = delete;

    static std::string answerText(const Called<BOOL>& called);

    // The context that all calls go to: the one acquired last, or another that a scenario puts here.
    HCRYPTPROV context = 0;

    HCRYPTPROV acquire(const char* container = nullptr, DWORD flags = 0);
    BOOL release(DWORD flags = 0);
    Bytes getProvParam(DWORD parameter, const Place& place, DWORD flags = 0);
    BOOL setProvParam(DWORD parameter, const Input& data, DWORD flags = 0);

    HCRYPTKEY genKey(ALG_ID algorithm, DWORD flags = 0);
    HCRYPTKEY getUserKey(DWORD keySpec);
    BOOL getKeyParam(HCRYPTKEY key, DWORD parameter, const Place& place, DWORD flags = 0);
    BOOL setKeyParam(HCRYPTKEY key, DWORD parameter, const Input& data, DWORD flags = 0);
    BOOL destroyKey(HCRYPTKEY key);
    HCRYPTKEY importKey(const Input& blob, HCRYPTKEY with = 0, DWORD flags = 0);
    BOOL exportKey(HCRYPTKEY key, DWORD type, const Place& place, DWORD flags = 0);

    HCRYPTHASH createHash(ALG_ID algorithm, DWORD flags = 0);
    BOOL hashData(HCRYPTHASH hash, const Input& data, DWORD flags = 0);
    BOOL getHashParam(HCRYPTHASH hash, DWORD parameter, const Place& place, DWORD flags = 0);
    BOOL setHashParam(HCRYPTHASH hash, DWORD parameter, const Input& data, DWORD flags = 0);
    HCRYPTHASH duplicateHash(HCRYPTHASH hash, DWORD flags = 0);
    BOOL destroyHash(HCRYPTHASH hash);
    BOOL hashSessionKey(HCRYPTHASH hash, HCRYPTKEY key, DWORD flags = 0);

    BOOL signHash(HCRYPTHASH hash, DWORD keySpec, const Place& place, DWORD flags = 0);
    BOOL verifySignature(HCRYPTHASH hash, const Input& signature, HCRYPTKEY key = 0, DWORD flags = 0);
    // `data` stands at the front of a buffer of this size.
    BOOL encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize, DWORD flags = 0);
    BOOL decrypt(HCRYPTKEY key, const Bytes& data, DWORD flags = 0);
    BOOL genRandom(const Place& place);
    BOOL deriveKey(ALG_ID algorithm, HCRYPTHASH hash, DWORD flags = 0);

    // Any call with arguments that the above have no words for.
    BOOL call(const std::string& name, const std::string& arguments, const std::function<BOOL()>& call);

private:
    template <class... Words>
    std::string withContext(const Words&... words) const
    {
        return argumentsAfter(context, words...);
    }
    BOOL handsOutInto(const std::string& name, const std::string& arguments, HandedBuffer& buffer,
                      const std::function<BOOL()>& call);
    Handle make(const std::string& name, const std::string& arguments, const char* kind,
                const std::function<BOOL(Handle*)>& call);

    std::vector<HCRYPTPROV> contexts_;
    std::vector<HCRYPTKEY> keys_;
    std::vector<HCRYPTHASH> hashes_;
};

} // namespace quelta::test
