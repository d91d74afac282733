#pragma once

#include "support/call_with_last_error.h"
#include "support/recorded_calls.h"

#include "csp/entry_points.h"

namespace quelta::test {

// The entry points of CryptoAPI, in the order of the published interface.
const std::vector<Function>& entryPoints();

// The entry points of CryptoAPI, recorded.
class CspCalls : public RecordedCalls {
public:
    explicit CspCalls(Recorder& recorder) : RecordedCalls(recorder) {}
    ~CspCalls();

    static std::string answerText(const Called<BOOL>& called);

    HCRYPTPROV& context = opened_;

    HCRYPTPROV acquire(const char* container = nullptr, DWORD flags = 0)
    {
        const Handle made = (*this)("CPAcquireContext", {container, flags});
        return made == 0 ? 0 : context = made;
    }
    BOOL release(DWORD flags = 0) { return is("CPReleaseContext", {flags}); }
    BOOL getProvParam(DWORD parameter, const Place& place, DWORD flags = 0)
    {
        return is("CPGetProvParam", {parameter, place, flags});
    }
    BOOL setProvParam(DWORD parameter, const Input& data) { return is("CPSetProvParam", {parameter, data}); }

    HCRYPTKEY genKey(ALG_ID id, DWORD flags = 0) { return (*this)("CPGenKey", {id, flags}); }
    HCRYPTKEY getUserKey(DWORD keySpec) { return (*this)("CPGetUserKey", {keySpec}); }
    BOOL getKeyParam(HCRYPTKEY key, DWORD parameter, const Place& place) { return is("CPGetKeyParam", {key, parameter, place}); }
    BOOL setKeyParam(HCRYPTKEY key, DWORD parameter, const Input& data, DWORD flags = 0)
    {
        return is("CPSetKeyParam", {key, parameter, data, flags});
    }
    BOOL destroyKey(HCRYPTKEY key) { return is("CPDestroyKey", {key}); }
    HCRYPTKEY importKey(const Input& blob, HCRYPTKEY with = 0, DWORD flags = 0)
    {
        return (*this)("CPImportKey", {blob, with, flags});
    }
    BOOL exportKey(HCRYPTKEY key, DWORD type, const Place& place, DWORD flags = 0)
    {
        return is("CPExportKey", {key, type, flags, place});
    }

    HCRYPTHASH createHash(ALG_ID id, DWORD flags = 0) { return (*this)("CPCreateHash", {id, flags}); }
    BOOL hashData(HCRYPTHASH hash, const Input& data) { return is("CPHashData", {hash, data}); }
    BOOL getHashParam(HCRYPTHASH hash, DWORD parameter, const Place& place, DWORD flags = 0)
    {
        return is("CPGetHashParam", {hash, parameter, place, flags});
    }
    BOOL setHashParam(HCRYPTHASH hash, DWORD parameter, const Input& data, DWORD flags = 0)
    {
        return is("CPSetHashParam", {hash, parameter, data, flags});
    }
    HCRYPTHASH duplicateHash(HCRYPTHASH hash, DWORD flags = 0) { return (*this)("CPDuplicateHash", {hash, flags}); }
    BOOL destroyHash(HCRYPTHASH hash) { return is("CPDestroyHash", {hash}); }

    BOOL signHash(HCRYPTHASH hash, const Place& place = {256, 256}, DWORD keySpec = AT_SIGNATURE, DWORD flags = 0)
    {
        return is("CPSignHash", {hash, keySpec, flags, place});
    }
    BOOL verifySignature(HCRYPTHASH hash, const Input& signature, HCRYPTKEY key = 0)
    {
        return is("CPVerifySignature", {hash, signature, key});
    }
    // `data` stands at the front of a buffer of this size.
    BOOL encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize = 256, DWORD flags = 0)
    {
        return is("CPEncrypt", {key, flags, InPlace{data, bufferSize}});
    }
    BOOL decrypt(HCRYPTKEY key, const Bytes& data = counting(256), DWORD flags = 0)
    {
        return is("CPDecrypt", {key, flags, InPlace{data, 0}});
    }
    BOOL genRandom(const Place& place) { return is("CPGenRandom", {place}); }

    // A call with arguments that the above have no words for.
    BOOL recorded(const char* name, const std::string& arguments, const std::function<BOOL()>& call);

protected:
    const std::vector<Function>& functions() const override { return entryPoints(); }
    std::pair<LONG, std::string> call(const Function& function, const Function::Values& values) const override;
    bool succeeded(LONG result) const override { return result != FALSE; }
    const char* kindOf(const Function& function) const override;
    // "SIMPLEBLOB CALG_AES_128 128 bytes of 00" for what can be read as a blob.
    std::string inputText(const Function& function, const Input& input) const override;
    // The records that two enumerations hand out, field by field; nothing for other values.
    std::optional<std::string> valueText(const Function& function, const Function::Values& values, ByteView value) const override;

private:
    BOOL is(const char* name, const std::vector<Stated>& stated) { return static_cast<BOOL>((*this)(name, stated)); }
};

} // namespace quelta::test
