#include "ksp/ksp_calls.h"

#include "ksp/ksp_test.h"

#include <ncrypt.h>

namespace quelta::test {

namespace {

std::string statusText(SECURITY_STATUS status)
{
    return status == 0 ? "0" : errorName(static_cast<DWORD>(status));
}

std::string keySpecText(DWORD keySpec)
{
    return keySpec == 0 ? "" : ", " + keySpecName(keySpec);
}

std::string textOf(const NCryptAlgorithmName& algorithm)
{
    return quoted(algorithm.pszName) + " class " + std::to_string(algorithm.dwClass) + " operations " +
           std::to_string(algorithm.dwAlgOperations) + flagsText(algorithm.dwFlags);
}

std::string textOf(const NCryptKeyName& key)
{
    return quoted(key.pszName) + " " + quoted(key.pszAlgid) + keySpecText(key.dwLegacyKeySpec) + flagsText(key.dwFlags);
}

} // namespace

KspCalls::KspCalls(Recorder& recorder) : RecordedCalls(recorder), table(keyStorageTable()) {}

KspCalls::~KspCalls()
{
    const Recorder::Pause pause(recorder_);
    const NCRYPT_PROV_HANDLE any = providers_.empty() ? 0 : providers_.front();
    for (const auto key : keys_) table.FreeKey(any, key);
    for (const auto open : providers_) table.FreeProvider(open);
}

SECURITY_STATUS KspCalls::call(const std::string& name, const std::string& arguments,
                               const std::function<SECURITY_STATUS()>& call)
{
    SECURITY_STATUS status = 0;
    recorder_.record(name, arguments, [&] {
        status = call();
        return statusText(status);
    });
    return status;
}

SECURITY_STATUS KspCalls::handsOutInto(const std::string& name, const std::string& arguments, const Place& place,
                                       const HandsOutInto& call)
{
    HandedBuffer buffer = HandedBuffer::withResult(place);
    SECURITY_STATUS status = 0;
    recorder_.record(name, arguments, [&] {
        status = call(buffer.data(), buffer.room(), buffer.length());
        return statusText(status) + buffer.outcome();
    });
    return status;
}

KspCalls::Handle KspCalls::make(const std::string& name, const std::string& arguments, const char* kind,
                                const std::function<SECURITY_STATUS(Handle*)>& call)
{
    return handsOut(name, arguments, kind, [&](Handle* made) { return statusText(call(made)); });
}

NCRYPT_KEY_HANDLE KspCalls::owned(NCRYPT_KEY_HANDLE key)
{
    if (key != 0) keys_.push_back(key);
    return key;
}

NCRYPT_PROV_HANDLE KspCalls::openProvider(LPCWSTR name, DWORD flags)
{
    const Handle made = make("KSPOpenProvider", quoted(name) + flagsText(flags), "provider",
                             [&](Handle* opened) { return table.OpenProvider(opened, name, flags); });
    if (made == 0) return 0;
    providers_.push_back(made);
    return provider = made;
}

SECURITY_STATUS KspCalls::freeProvider()
{
    std::erase(providers_, provider);
    return call("KSPFreeProvider", handle(provider), [&] { return table.FreeProvider(provider); });
}

SECURITY_STATUS KspCalls::getProviderProperty(LPCWSTR name, const Place& place, DWORD flags)
{
    return handsOutInto("KSPGetProviderProperty", withProvider(quoted(name), words(place)) + flagsText(flags), place,
                        [&](PBYTE output, DWORD room, DWORD* result) {
                            return table.GetProviderProperty(provider, name, output, room, result, flags);
                        });
}

SECURITY_STATUS KspCalls::setProviderProperty(LPCWSTR name, const Input& value, DWORD flags)
{
    HandedInput input(value);
    return call("KSPSetProviderProperty", withProvider(quoted(name), inputWords(value)) + flagsText(flags),
                [&] { return table.SetProviderProperty(provider, name, input.data(), input.size(), flags); });
}

NCRYPT_KEY_HANDLE KspCalls::openKey(LPCWSTR name, DWORD legacyKeySpec, DWORD flags)
{
    return owned(make("KSPOpenKey", withProvider(quoted(name)) + keySpecText(legacyKeySpec) + flagsText(flags), "key",
                      [&](Handle* key) { return table.OpenKey(provider, key, name, legacyKeySpec, flags); }));
}

NCRYPT_KEY_HANDLE KspCalls::createPersistedKey(LPCWSTR algorithm, LPCWSTR name, DWORD legacyKeySpec, DWORD flags)
{
    return owned(make(
        "KSPCreatePersistedKey", withProvider(quoted(algorithm), quoted(name)) + keySpecText(legacyKeySpec) + flagsText(flags),
        "key", [&](Handle* key) { return table.CreatePersistedKey(provider, key, algorithm, name, legacyKeySpec, flags); }));
}

SECURITY_STATUS KspCalls::getKeyProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name, const Place& place, DWORD flags)
{
    return handsOutInto("KSPGetKeyProperty", withProvider(handle(key), quoted(name), words(place)) + flagsText(flags), place,
                        [&](PBYTE output, DWORD room, DWORD* result) {
                            return table.GetKeyProperty(provider, key, name, output, room, result, flags);
                        });
}

SECURITY_STATUS KspCalls::setKeyProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name, const Input& value, DWORD flags)
{
    HandedInput input(value);
    return call("KSPSetKeyProperty", withProvider(handle(key), quoted(name), inputWords(value)) + flagsText(flags),
                [&] { return table.SetKeyProperty(provider, key, name, input.data(), input.size(), flags); });
}

SECURITY_STATUS KspCalls::finalizeKey(NCRYPT_KEY_HANDLE key, DWORD flags)
{
    return call("KSPFinalizeKey", withProvider(handle(key)) + flagsText(flags),
                [&] { return table.FinalizeKey(provider, key, flags); });
}

SECURITY_STATUS KspCalls::deleteKey(NCRYPT_KEY_HANDLE key, DWORD flags)
{
    return call("KSPDeleteKey", withProvider(handle(key)) + flagsText(flags),
                [&] { return table.DeleteKey(provider, key, flags); });
}

SECURITY_STATUS KspCalls::freeKey(NCRYPT_KEY_HANDLE key)
{
    const SECURITY_STATUS status = call("KSPFreeKey", withProvider(handle(key)), [&] { return table.FreeKey(provider, key); });
    if (status == 0) std::erase(keys_, key);
    return status;
}

SECURITY_STATUS KspCalls::freeBuffer(void* buffer)
{
    return call("KSPFreeBuffer", buffer ? "a buffer" : "null", [&] { return table.FreeBuffer(buffer); });
}

SECURITY_STATUS KspCalls::isAlgSupported(LPCWSTR algorithm, DWORD flags)
{
    return call("KSPIsAlgSupported", withProvider(quoted(algorithm)) + flagsText(flags),
                [&] { return table.IsAlgSupported(provider, algorithm, flags); });
}

SECURITY_STATUS KspCalls::enumAlgorithms(DWORD operations, DWORD flags)
{
    SECURITY_STATUS status = 0;
    NCryptAlgorithmName* list = nullptr;
    recorder_.record("KSPEnumAlgorithms", withProvider("operations " + std::to_string(operations)) + flagsText(flags), [&] {
        DWORD count = 0;
        status = table.EnumAlgorithms(provider, operations, &count, &list, flags);
        std::string text = statusText(status);
        for (DWORD i = 0; list && i < count; ++i) text += (i == 0 ? ", " : "; ") + textOf(list[i]);
        return text;
    });
    table.FreeBuffer(list);
    return status;
}

SECURITY_STATUS KspCalls::enumKeys(void*& state, LPCWSTR scope, DWORD flags)
{
    SECURITY_STATUS status = 0;
    NCryptKeyName* name = nullptr;
    const std::string arguments = withProvider(state ? "next" : "first") + (scope ? ", " + quoted(scope) : "") + flagsText(flags);
    recorder_.record("KSPEnumKeys", arguments, [&] {
        status = table.EnumKeys(provider, scope, &name, &state, flags);
        return statusText(status) + (name ? ", " + textOf(*name) : "");
    });
    table.FreeBuffer(name);
    return status;
}

NCRYPT_KEY_HANDLE KspCalls::importKey(LPCWSTR type, const Input& blob, NCRYPT_KEY_HANDLE with, DWORD flags)
{
    HandedInput input(blob);
    return owned(make(
        "KSPImportKey", withProvider(handle(with), quoted(type), inputWords(blob)) + flagsText(flags), "key",
        [&](Handle* key) { return table.ImportKey(provider, with, type, nullptr, key, input.data(), input.size(), flags); }));
}

SECURITY_STATUS KspCalls::exportKey(NCRYPT_KEY_HANDLE key, LPCWSTR type, const Place& place, DWORD flags)
{
    return handsOutInto("KSPExportKey", withProvider(handle(key), quoted(type), words(place)) + flagsText(flags), place,
                        [&](PBYTE output, DWORD room, DWORD* result) {
                            return table.ExportKey(provider, key, 0, type, nullptr, output, room, result, flags);
                        });
}

SECURITY_STATUS KspCalls::encrypt(NCRYPT_KEY_HANDLE key, const Input& data, const Place& place, DWORD flags,
                                  const Padding& padding)
{
    HandedInput input(data);
    return handsOutInto("KSPEncrypt", withProvider(handle(key), inputWords(data), padding.words, words(place)) + flagsText(flags),
                        place, [&](PBYTE output, DWORD room, DWORD* result) {
                            return table.Encrypt(provider, key, input.data(), input.size(), padding.info, output, room, result,
                                                 flags);
                        });
}

SECURITY_STATUS KspCalls::decrypt(NCRYPT_KEY_HANDLE key, const Input& data, const Place& place, DWORD flags,
                                  const Padding& padding)
{
    HandedInput input(data);
    return handsOutInto("KSPDecrypt", withProvider(handle(key), inputWords(data), padding.words, words(place)) + flagsText(flags),
                        place, [&](PBYTE output, DWORD room, DWORD* result) {
                            return table.Decrypt(provider, key, input.data(), input.size(), padding.info, output, room, result,
                                                 flags);
                        });
}

SECURITY_STATUS KspCalls::signHash(NCRYPT_KEY_HANDLE key, const Input& hash, const Place& place, DWORD flags,
                                   const Padding& padding)
{
    HandedInput input(hash);
    return handsOutInto(
        "KSPSignHash", withProvider(handle(key), inputWords(hash), padding.words, words(place)) + flagsText(flags), place,
        [&](PBYTE output, DWORD room, DWORD* result) {
            return table.SignHash(provider, key, padding.info, input.data(), input.size(), output, room, result, flags);
        });
}

SECURITY_STATUS KspCalls::verifySignature(NCRYPT_KEY_HANDLE key, const Input& hash, const Input& signature, DWORD flags,
                                          const Padding& padding)
{
    HandedInput digest(hash);
    HandedInput given(signature);
    return call("KSPVerifySignature",
                withProvider(handle(key), inputWords(hash), inputWords(signature), padding.words) + flagsText(flags), [&] {
                    return table.VerifySignature(provider, key, padding.info, digest.data(), digest.size(), given.data(),
                                                 given.size(), flags);
                });
}

SECURITY_STATUS KspCalls::promptUser(NCRYPT_KEY_HANDLE key, LPCWSTR operation, DWORD flags)
{
    return call("KSPPromptUser", withProvider(handle(key), quoted(operation)) + flagsText(flags),
                [&] { return table.PromptUser(provider, key, operation, flags); });
}

} // namespace quelta::test
