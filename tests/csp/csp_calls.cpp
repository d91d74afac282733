#include "csp/csp_calls.h"

#include "csp/entry_points.h"

namespace quelta::test {

namespace {

std::string enumerationText(DWORD flags)
{
    if (flags == CRYPT_FIRST) return ", CRYPT_FIRST";
    return flags == CRYPT_NEXT ? ", CRYPT_NEXT" : flagsText(flags);
}

template <std::size_t Size>
std::string nameText(const char (&name)[Size], DWORD length)
{
    return "\"" + std::string(name) + "\" (" + std::to_string(length) + ")";
}

// The records that two enumerations hand out, field by field.
std::optional<std::string> recordText(DWORD parameter, ByteView value)
{
    if (parameter == PP_ENUMALGS && value.size() == sizeof(PROV_ENUMALGS)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS*>(value.data());
        return algorithmName(record.aiAlgid) + " " + std::to_string(record.dwBitLen) + " bits " +
               nameText(record.szName, record.dwNameLen);
    }
    if (parameter == PP_ENUMALGS_EX && value.size() == sizeof(PROV_ENUMALGS_EX)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS_EX*>(value.data());
        return algorithmName(record.aiAlgid) + " " + std::to_string(record.dwDefaultLen) + " of " +
               std::to_string(record.dwMinLen) + " to " + std::to_string(record.dwMaxLen) + " bits, protocols " +
               std::to_string(record.dwProtocols) + ", " + nameText(record.szName, record.dwNameLen) + ", " +
               nameText(record.szLongName, record.dwLongNameLen);
    }
    return std::nullopt;
}

// "SIMPLEBLOB CALG_AES_128, 128 bytes of 00" for what can be read as a blob.
std::string blobText(const Input& blob)
{
    if (!blob || blob->size() < sizeof(BLOBHEADER)) return inputWords(blob);
    BLOBHEADER header{};
    std::memcpy(&header, blob->data(), sizeof header);
    std::string text = blobTypeName(header.bType) + " " + algorithmName(header.aiKeyAlg);
    if (header.bVersion != CUR_BLOB_VERSION) text += " version " + std::to_string(header.bVersion);
    return text + " " + words(ByteView(*blob).subspan(sizeof header));
}

} // namespace

std::string CspCalls::answerText(const Called<BOOL>& called)
{
    const std::string value = called.result ? "TRUE" : "FALSE";
    if (!called.lastErrorKept()) return value + ", " + errorName(called.lastError);
    return called.result ? value : value + ", last error kept";
}

CspCalls::~CspCalls()
{
    const Recorder::Pause pause(recorder_);
    const HCRYPTPROV any = contexts_.empty() ? 0 : contexts_.front();
    for (const auto hash : hashes_) CPDestroyHash(any, hash);
    for (const auto key : keys_) CPDestroyKey(any, key);
    for (const auto prov : contexts_) CPReleaseContext(prov, 0);
}

BOOL CspCalls::call(const std::string& name, const std::string& arguments, const std::function<BOOL()>& call)
{
    BOOL result = FALSE;
    recorder_.record(name, arguments, [&] {
        const auto called = callWithLastError(call);
        result = called.result;
        return answerText(called);
    });
    return result;
}

BOOL CspCalls::handsOutInto(const std::string& name, const std::string& arguments, HandedBuffer& buffer,
                            const std::function<BOOL()>& call)
{
    BOOL result = FALSE;
    recorder_.record(name, arguments, [&] {
        const auto called = callWithLastError(call);
        result = called.result;
        return answerText(called) + buffer.outcome();
    });
    return result;
}

CspCalls::Handle CspCalls::make(const std::string& name, const std::string& arguments, const char* kind,
                                const std::function<BOOL(Handle*)>& call)
{
    return handsOut(name, arguments, kind,
                    [&](Handle* made) { return answerText(callWithLastError([&] { return call(made); })); });
}

HCRYPTPROV CspCalls::acquire(const char* container, DWORD flags)
{
    const Handle made = make("CPAcquireContext", quoted(container) + flagsText(flags), "context", [&](Handle* prov) {
        BYTE table = 0;
        return CPAcquireContext(prov, container, flags, &table);
    });
    if (made == 0) return 0;
    contexts_.push_back(made);
    return context = made;
}

BOOL CspCalls::release(DWORD flags)
{
    const BOOL released =
        call("CPReleaseContext", handle(context) + flagsText(flags), [&] { return CPReleaseContext(context, flags); });
    if (released) std::erase(contexts_, context);
    return released;
}

Bytes CspCalls::getProvParam(DWORD parameter, const Place& place, DWORD flags)
{
    HandedBuffer buffer(place);
    recorder_.record("CPGetProvParam",
                     withContext(parameter == PP_ENUMALGS ? "PP_ENUMALGS" : providerParameterName(parameter), words(place)) +
                         enumerationText(flags),
                     [&] {
                         const auto called = callWithLastError(
                             [&] { return CPGetProvParam(context, parameter, buffer.data(), buffer.length(), flags); });
                         return answerText(called) + buffer.outcome(recordText(parameter, buffer.written()));
                     });
    return buffer.written();
}

BOOL CspCalls::setProvParam(DWORD parameter, const Input& data, DWORD flags)
{
    HandedInput input(data);
    return call("CPSetProvParam", withContext(providerParameterName(parameter), inputWords(data)) + flagsText(flags),
                [&] { return CPSetProvParam(context, parameter, input.data(), flags); });
}

HCRYPTKEY CspCalls::genKey(ALG_ID algorithm, DWORD flags)
{
    const Handle made = make("CPGenKey", withContext(algorithmName(algorithm)) + flagsText(flags), "key",
                             [&](Handle* key) { return CPGenKey(context, algorithm, flags, key); });
    if (made != 0) keys_.push_back(made);
    return made;
}

HCRYPTKEY CspCalls::getUserKey(DWORD keySpec)
{
    const Handle made = make("CPGetUserKey", withContext(keySpecName(keySpec)), "key",
                             [&](Handle* key) { return CPGetUserKey(context, keySpec, key); });
    if (made != 0) keys_.push_back(made);
    return made;
}

BOOL CspCalls::getKeyParam(HCRYPTKEY key, DWORD parameter, const Place& place, DWORD flags)
{
    HandedBuffer buffer(place);
    return handsOutInto("CPGetKeyParam", withContext(handle(key), keyParameterName(parameter), words(place)) + flagsText(flags),
                        buffer, [&] { return CPGetKeyParam(context, key, parameter, buffer.data(), buffer.length(), flags); });
}

BOOL CspCalls::setKeyParam(HCRYPTKEY key, DWORD parameter, const Input& data, DWORD flags)
{
    HandedInput input(data);
    return call("CPSetKeyParam", withContext(handle(key), keyParameterName(parameter), inputWords(data)) + flagsText(flags),
                [&] { return CPSetKeyParam(context, key, parameter, input.data(), flags); });
}

BOOL CspCalls::destroyKey(HCRYPTKEY key)
{
    const BOOL destroyed = call("CPDestroyKey", withContext(handle(key)), [&] { return CPDestroyKey(context, key); });
    if (destroyed) std::erase(keys_, key);
    return destroyed;
}

HCRYPTKEY CspCalls::importKey(const Input& blob, HCRYPTKEY with, DWORD flags)
{
    HandedInput input(blob);
    const Handle made = make("CPImportKey", withContext(blobText(blob), handle(with)) + flagsText(flags), "key",
                             [&](Handle* key) { return CPImportKey(context, input.data(), input.size(), with, flags, key); });
    if (made != 0) keys_.push_back(made);
    return made;
}

BOOL CspCalls::exportKey(HCRYPTKEY key, DWORD type, const Place& place, DWORD flags)
{
    HandedBuffer buffer(place);
    return handsOutInto("CPExportKey", withContext(handle(key), blobTypeName(type), words(place)) + flagsText(flags), buffer,
                        [&] { return CPExportKey(context, key, 0, type, flags, buffer.data(), buffer.length()); });
}

HCRYPTHASH CspCalls::createHash(ALG_ID algorithm, DWORD flags)
{
    const Handle made = make("CPCreateHash", withContext(algorithmName(algorithm)) + flagsText(flags), "hash",
                             [&](Handle* hash) { return CPCreateHash(context, algorithm, 0, flags, hash); });
    if (made != 0) hashes_.push_back(made);
    return made;
}

BOOL CspCalls::hashData(HCRYPTHASH hash, const Input& data, DWORD flags)
{
    HandedInput input(data);
    return call("CPHashData", withContext(handle(hash), inputWords(data)) + flagsText(flags),
                [&] { return CPHashData(context, hash, input.data(), input.size(), flags); });
}

BOOL CspCalls::getHashParam(HCRYPTHASH hash, DWORD parameter, const Place& place, DWORD flags)
{
    HandedBuffer buffer(place);
    return handsOutInto("CPGetHashParam",
                        withContext(handle(hash), hashParameterName(parameter), words(place)) + flagsText(flags), buffer,
                        [&] { return CPGetHashParam(context, hash, parameter, buffer.data(), buffer.length(), flags); });
}

BOOL CspCalls::setHashParam(HCRYPTHASH hash, DWORD parameter, const Input& data, DWORD flags)
{
    HandedInput input(data);
    return call("CPSetHashParam", withContext(handle(hash), hashParameterName(parameter), inputWords(data)) + flagsText(flags),
                [&] { return CPSetHashParam(context, hash, parameter, input.data(), flags); });
}

HCRYPTHASH CspCalls::duplicateHash(HCRYPTHASH hash, DWORD flags)
{
    const Handle made = make("CPDuplicateHash", withContext(handle(hash)) + flagsText(flags), "hash",
                             [&](Handle* copy) { return CPDuplicateHash(context, hash, nullptr, flags, copy); });
    if (made != 0) hashes_.push_back(made);
    return made;
}

BOOL CspCalls::destroyHash(HCRYPTHASH hash)
{
    const BOOL destroyed = call("CPDestroyHash", withContext(handle(hash)), [&] { return CPDestroyHash(context, hash); });
    if (destroyed) std::erase(hashes_, hash);
    return destroyed;
}

BOOL CspCalls::hashSessionKey(HCRYPTHASH hash, HCRYPTKEY key, DWORD flags)
{
    return call("CPHashSessionKey", withContext(handle(hash), handle(key)) + flagsText(flags),
                [&] { return CPHashSessionKey(context, hash, key, flags); });
}

BOOL CspCalls::signHash(HCRYPTHASH hash, DWORD keySpec, const Place& place, DWORD flags)
{
    HandedBuffer buffer(place);
    return handsOutInto("CPSignHash", withContext(handle(hash), keySpecName(keySpec), words(place)) + flagsText(flags), buffer,
                        [&] { return CPSignHash(context, hash, keySpec, nullptr, flags, buffer.data(), buffer.length()); });
}

BOOL CspCalls::verifySignature(HCRYPTHASH hash, const Input& signature, HCRYPTKEY key, DWORD flags)
{
    HandedInput input(signature);
    return call("CPVerifySignature", withContext(handle(hash), inputWords(signature), handle(key)) + flagsText(flags),
                [&] { return CPVerifySignature(context, hash, input.data(), input.size(), key, nullptr, flags); });
}

BOOL CspCalls::encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize, DWORD flags)
{
    Bytes content = data;
    content.resize(bufferSize, GuardedBuffer::untouched);
    HandedBuffer buffer(content, static_cast<DWORD>(data.size()));
    return handsOutInto(
        "CPEncrypt", withContext(handle(key), inputWords(data), "room " + std::to_string(bufferSize)) + flagsText(flags), buffer,
        [&] { return CPEncrypt(context, key, 0, TRUE, flags, buffer.data(), buffer.length(), bufferSize); });
}

BOOL CspCalls::decrypt(HCRYPTKEY key, const Bytes& data, DWORD flags)
{
    HandedBuffer buffer(data, static_cast<DWORD>(data.size()));
    return handsOutInto("CPDecrypt", withContext(handle(key), inputWords(data)) + flagsText(flags), buffer,
                        [&] { return CPDecrypt(context, key, 0, TRUE, flags, buffer.data(), buffer.length()); });
}

BOOL CspCalls::genRandom(const Place& place)
{
    HandedBuffer buffer(Place{place.buffer, std::nullopt});
    return handsOutInto("CPGenRandom", withContext(words(place)), buffer,
                        [&] { return CPGenRandom(context, place.stated.value_or(0), buffer.data()); });
}

BOOL CspCalls::deriveKey(ALG_ID algorithm, HCRYPTHASH hash, DWORD flags)
{
    return make("CPDeriveKey", withContext(algorithmName(algorithm), handle(hash)) + flagsText(flags), "key",
                [&](Handle* key) { return CPDeriveKey(context, algorithm, hash, flags, key); }) != 0;
}

} // namespace quelta::test
