#pragma once

#include "support/call_with_last_error.h"
#include "support/recorded_calls.h"

#include "csp/entry_points.h"

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

    HCRYPTPROV acquire(const char* container = nullptr, DWORD flags = 0)
    {
        const auto release = [](HCRYPTPROV, Handle made) -> BOOL { return CPReleaseContext(made, 0); };
        const Handle made = make("CPAcquireContext", quoted(container) + flagsText(flags), release, [&](Handle* prov) {
            BYTE table = 0;
            return CPAcquireContext(prov, container, flags, &table);
        });
        return made == 0 ? 0 : context = made;
    }
    BOOL release(DWORD flags = 0)
    {
        return destroy("CPReleaseContext", arguments({}, flags), context, [&] { return CPReleaseContext(context, flags); });
    }
    BOOL getProvParam(DWORD parameter, const Place& place, DWORD flags = 0);
    BOOL setProvParam(DWORD parameter, const Input& data)
    {
        return set("CPSetProvParam", {providerParameterName(parameter), inputWords(data)}, data, 0,
                   [&](BYTE* bytes, DWORD) { return CPSetProvParam(context, parameter, bytes, 0); });
    }

    HCRYPTKEY genKey(ALG_ID id, DWORD flags = 0)
    {
        return make("CPGenKey", arguments({algorithmName(id)}, flags), CPDestroyKey,
                    [&](Handle* key) { return CPGenKey(context, id, flags, key); });
    }
    HCRYPTKEY getUserKey(DWORD keySpec)
    {
        return make("CPGetUserKey", arguments({keySpecName(keySpec)}), CPDestroyKey,
                    [&](Handle* key) { return CPGetUserKey(context, keySpec, key); });
    }
    BOOL getKeyParam(HCRYPTKEY key, DWORD parameter, const Place& place)
    {
        return get("CPGetKeyParam", handle(key) + ", " + keyParameterName(parameter), place, 0,
                   [&](BYTE* data, DWORD* length) { return CPGetKeyParam(context, key, parameter, data, length, 0); });
    }
    BOOL setKeyParam(HCRYPTKEY key, DWORD parameter, const Input& data, DWORD flags = 0)
    {
        return set("CPSetKeyParam", {handle(key), keyParameterName(parameter), inputWords(data)}, data, flags,
                   [&](BYTE* bytes, DWORD) { return CPSetKeyParam(context, key, parameter, bytes, flags); });
    }
    BOOL destroyKey(HCRYPTKEY key)
    {
        return destroy("CPDestroyKey", arguments({handle(key)}), key, [&] { return CPDestroyKey(context, key); });
    }
    HCRYPTKEY importKey(const Input& blob, HCRYPTKEY with = 0, DWORD flags = 0);
    BOOL exportKey(HCRYPTKEY key, DWORD type, const Place& place, DWORD flags = 0)
    {
        return get("CPExportKey", handle(key) + ", " + blobTypeName(type), place, flags,
                   [&](BYTE* data, DWORD* length) { return CPExportKey(context, key, 0, type, flags, data, length); });
    }

    HCRYPTHASH createHash(ALG_ID id, DWORD flags = 0)
    {
        return make("CPCreateHash", arguments({algorithmName(id)}, flags), CPDestroyHash,
                    [&](Handle* hash) { return CPCreateHash(context, id, 0, flags, hash); });
    }
    BOOL hashData(HCRYPTHASH hash, const Input& data, DWORD flags = 0)
    {
        return set("CPHashData", {handle(hash), inputWords(data)}, data, flags,
                   [&](BYTE* bytes, DWORD size) { return CPHashData(context, hash, bytes, size, flags); });
    }
    BOOL getHashParam(HCRYPTHASH hash, DWORD parameter, const Place& place, DWORD flags = 0)
    {
        return get("CPGetHashParam", handle(hash) + ", " + hashParameterName(parameter), place, flags,
                   [&](BYTE* data, DWORD* length) { return CPGetHashParam(context, hash, parameter, data, length, flags); });
    }
    BOOL setHashParam(HCRYPTHASH hash, DWORD parameter, const Input& data, DWORD flags = 0)
    {
        return set("CPSetHashParam", {handle(hash), hashParameterName(parameter), inputWords(data)}, data, flags,
                   [&](BYTE* bytes, DWORD) { return CPSetHashParam(context, hash, parameter, bytes, flags); });
    }
    HCRYPTHASH duplicateHash(HCRYPTHASH hash, DWORD flags = 0)
    {
        return make("CPDuplicateHash", arguments({handle(hash)}, flags), CPDestroyHash,
                    [&](Handle* copy) { return CPDuplicateHash(context, hash, nullptr, flags, copy); });
    }
    BOOL destroyHash(HCRYPTHASH hash)
    {
        return destroy("CPDestroyHash", arguments({handle(hash)}), hash, [&] { return CPDestroyHash(context, hash); });
    }

    BOOL signHash(HCRYPTHASH hash, const Place& place = {256, 256}, DWORD keySpec = AT_SIGNATURE, DWORD flags = 0)
    {
        return get("CPSignHash", handle(hash) + ", " + keySpecName(keySpec), place, flags,
                   [&](BYTE* data, DWORD* length) { return CPSignHash(context, hash, keySpec, nullptr, flags, data, length); });
    }
    BOOL verifySignature(HCRYPTHASH hash, const Input& signature, HCRYPTKEY key = 0)
    {
        return set("CPVerifySignature", {handle(hash), inputWords(signature), handle(key)}, signature, 0,
                   [&](BYTE* data, DWORD size) { return CPVerifySignature(context, hash, data, size, key, nullptr, 5); });
    }
    // `data` stands at the front of a buffer of this size.
    BOOL encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize = 256, DWORD flags = 0);
    BOOL decrypt(HCRYPTKEY key, const Bytes& data = counting(256), DWORD flags = 0);
    BOOL genRandom(const Place& place)
    {
        return get("CPGenRandom", std::to_string(place.stated.value_or(0)), Place{place.buffer, std::nullopt}, 0,
                   [&](BYTE* data, DWORD*) { return CPGenRandom(context, place.stated.value_or(0), data); });
    }

    // Any call with arguments that the above have no words for.
    BOOL call(const char* name, const std::string& arguments, const std::function<BOOL()>& call);

private:
    using Words = std::initializer_list<std::string>;
    using HandOut = std::function<BOOL(BYTE* data, DWORD* length)>;
    using Destroy = BOOL(WINAPI*)(HCRYPTPROV, Handle);

    // The context, these, and the flags if there are any.
    std::string arguments(const Words& words, DWORD flags = 0) const;
    BOOL fill(
        HandedBuffer& buffer, const char* name, const std::string& arguments, const HandOut& call,
        const std::function<std::optional<std::string>()>& valueText = [] { return std::nullopt; });
    BOOL get(const char* name, const std::string& object, const Place& place, DWORD flags, const HandOut& call);
    BOOL set(const char* name, const Words& words, const Input& data, DWORD flags, const std::function<BOOL(BYTE*, DWORD)>& call);
    Handle make(const char* name, const std::string& arguments, Destroy free, const std::function<BOOL(Handle*)>& call);
    BOOL destroy(const char* name, const std::string& arguments, Handle made, const std::function<BOOL()>& call);

    // With how to free them.
    std::map<Handle, Destroy> made_;
};

} // namespace quelta::test
