#include "csp/csp_calls.h"

#include "csp/context.h"

namespace quelta::test {

namespace {

std::string enumerationText(DWORD flags)
{
    if (flags == CRYPT_FIRST) return ", CRYPT_FIRST";
    return flags == CRYPT_NEXT ? ", CRYPT_NEXT" : flagsText(flags);
}

// The records that two enumerations hand out, field by field; nothing for other values.
std::optional<std::string> recordText(DWORD parameter, ByteView value)
{
    const auto named = [](const char* name, DWORD length) { return ", \"" + std::string(name) + "\" " + std::to_string(length); };
    if (parameter == PP_ENUMALGS && value.size() == sizeof(PROV_ENUMALGS)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS*>(value.data());
        return algorithmName(record.aiAlgid) + " " + std::to_string(record.dwBitLen) + named(record.szName, record.dwNameLen);
    }
    if (parameter == PP_ENUMALGS_EX && value.size() == sizeof(PROV_ENUMALGS_EX)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS_EX*>(value.data());
        std::string text = algorithmName(record.aiAlgid);
        for (const DWORD number : {record.dwDefaultLen, record.dwMinLen, record.dwMaxLen, record.dwProtocols})
            text += " " + std::to_string(number);
        return text + named(record.szName, record.dwNameLen) + named(record.szLongName, record.dwLongNameLen);
    }
    return std::nullopt;
}

// "SIMPLEBLOB CALG_AES_128 128 bytes of 00" for what can be read as a blob.
std::string blobText(const Input& blob)
{
    if (!blob || blob->size() < sizeof(BLOBHEADER)) return inputWords(blob);
    const auto& header = *reinterpret_cast<const BLOBHEADER*>(blob->data());
    return blobTypeName(header.bType) + " " + algorithmName(header.aiKeyAlg) + " " +
           words(ByteView(*blob).subspan(sizeof header));
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
    CspContext ready;
    ready.valid = true;
    const Recorder::Pause pause(recorder_);
    for (const auto& [made, free] : made_) free(reinterpret_cast<HCRYPTPROV>(&ready), made);
}

std::string CspCalls::arguments(const Words& words, DWORD flags) const
{
    std::string text = handle(context);
    for (const auto& word : words) text += ", " + word;
    return text + flagsText(flags);
}

BOOL CspCalls::fill(HandedBuffer& buffer, const char* name, const std::string& arguments, const HandOut& call,
                    const std::function<std::optional<std::string>()>& valueText)
{
    BOOL result = FALSE;
    recorder_.record(name, arguments, [&] {
        const auto called = callWithLastError([&] { return call(buffer.data(), buffer.length()); });
        result = called.result;
        return answerText(called) + buffer.outcome(valueText());
    });
    return result;
}

BOOL CspCalls::call(const char* name, const std::string& arguments, const std::function<BOOL()>& call)
{
    HandedBuffer none{Place{}};
    return fill(none, name, arguments, [&](BYTE*, DWORD*) { return call(); });
}

BOOL CspCalls::get(const char* name, const std::string& object, const Place& place, DWORD flags, const HandOut& call)
{
    HandedBuffer buffer(place);
    return fill(buffer, name, arguments({object, words(place)}, flags), call);
}

BOOL CspCalls::set(const char* name, const Words& words, const Input& data, DWORD flags,
                   const std::function<BOOL(BYTE*, DWORD)>& call)
{
    HandedInput input(data);
    return this->call(name, arguments(words, flags), [&] { return call(input.data(), input.size()); });
}

CspCalls::Handle CspCalls::make(const char* name, const std::string& arguments, Destroy free,
                                const std::function<BOOL(Handle*)>& call)
{
    const char* const kind = free == CPDestroyKey ? "key" : free == CPDestroyHash ? "hash" : "context";
    const Handle made =
        handsOut(name, arguments, kind, [&](Handle* out) { return answerText(callWithLastError([&] { return call(out); })); });
    if (made != 0) made_[made] = free;
    return made;
}

BOOL CspCalls::destroy(const char* name, const std::string& arguments, Handle made, const std::function<BOOL()>& call)
{
    const BOOL destroyed = this->call(name, arguments, call);
    if (destroyed) made_.erase(made);
    return destroyed;
}

BOOL CspCalls::getProvParam(DWORD parameter, const Place& place, DWORD flags)
{
    HandedBuffer buffer(place);
    const std::string name = parameter == PP_ENUMALGS ? "PP_ENUMALGS" : providerParameterName(parameter);
    const auto valueText = [&] { return recordText(parameter, buffer.written()); };
    return fill(
        buffer, "CPGetProvParam", arguments({name, words(place)}) + enumerationText(flags),
        [&](BYTE* data, DWORD* length) { return CPGetProvParam(context, parameter, data, length, flags); }, valueText);
}

HCRYPTKEY CspCalls::importKey(const Input& blob, HCRYPTKEY with, DWORD flags)
{
    HandedInput input(blob);
    return make("CPImportKey", arguments({blobText(blob), handle(with)}, flags), CPDestroyKey,
                [&](Handle* key) { return CPImportKey(context, input.data(), input.size(), with, flags, key); });
}

BOOL CspCalls::encrypt(HCRYPTKEY key, const Bytes& data, DWORD bufferSize, DWORD flags)
{
    Bytes content = data;
    content.resize(bufferSize, GuardedBuffer::untouched);
    HandedBuffer buffer(content, static_cast<DWORD>(data.size()));
    return fill(buffer, "CPEncrypt", arguments({handle(key), inputWords(data), "room " + std::to_string(bufferSize)}, flags),
                [&](BYTE* bytes, DWORD* length) { return CPEncrypt(context, key, 0, TRUE, flags, bytes, length, bufferSize); });
}

BOOL CspCalls::decrypt(HCRYPTKEY key, const Bytes& data, DWORD flags)
{
    HandedBuffer buffer(data, static_cast<DWORD>(data.size()));
    return fill(buffer, "CPDecrypt", arguments({handle(key), inputWords(data)}, flags),
                [&](BYTE* bytes, DWORD* length) { return CPDecrypt(context, key, 0, TRUE, flags, bytes, length); });
}

} // namespace quelta::test
