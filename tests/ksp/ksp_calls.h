#pragma once

#include "support/recorded_calls.h"

#include "ksp/function_table.h"

namespace quelta::test {

// A padding structure, or whatever else stands for one, and the words for it.
struct Padding {
    const char* words = "no padding";
    void* info = nullptr;
};

// The slots of the key storage table, recorded. What they hand out is freed at the end, if it is not freed before.
class KspCalls : public RecordedCalls {
public:
    explicit KspCalls(Recorder& recorder);
    ~KspCalls();
    KspCalls(const KspCalls&) = delete;
    KspCalls& operator=(const KspCalls&) = delete;

    // The provider that all calls go to: the one opened last, or another that a scenario puts here.
    NCRYPT_PROV_HANDLE provider = 0;

    NCRYPT_PROV_HANDLE openProvider(LPCWSTR name = L"", DWORD flags = 0);
    SECURITY_STATUS freeProvider();
    SECURITY_STATUS getProviderProperty(LPCWSTR name, const Place& place, DWORD flags = 0);
    SECURITY_STATUS setProviderProperty(LPCWSTR name, const Input& value, DWORD flags = 0);

    NCRYPT_KEY_HANDLE openKey(LPCWSTR name, DWORD legacyKeySpec = 0, DWORD flags = 0);
    NCRYPT_KEY_HANDLE createPersistedKey(LPCWSTR algorithm, LPCWSTR name, DWORD legacyKeySpec = 0, DWORD flags = 0);
    SECURITY_STATUS getKeyProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name, const Place& place, DWORD flags = 0);
    SECURITY_STATUS setKeyProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name, const Input& value, DWORD flags = 0);
    SECURITY_STATUS finalizeKey(NCRYPT_KEY_HANDLE key, DWORD flags = 0);
    SECURITY_STATUS deleteKey(NCRYPT_KEY_HANDLE key, DWORD flags = 0);
    SECURITY_STATUS freeKey(NCRYPT_KEY_HANDLE key);
    SECURITY_STATUS freeBuffer(void* buffer);

    SECURITY_STATUS isAlgSupported(LPCWSTR algorithm, DWORD flags = 0);
    SECURITY_STATUS enumAlgorithms(DWORD operations, DWORD flags = 0);
    // The next of an enumeration whose state is kept here, null before its first; what it names is written down and freed.
    SECURITY_STATUS enumKeys(void*& state, LPCWSTR scope = nullptr, DWORD flags = 0);

    NCRYPT_KEY_HANDLE importKey(LPCWSTR type, const Input& blob, NCRYPT_KEY_HANDLE with = 0, DWORD flags = 0);
    SECURITY_STATUS exportKey(NCRYPT_KEY_HANDLE key, LPCWSTR type, const Place& place, DWORD flags = 0);

    SECURITY_STATUS encrypt(NCRYPT_KEY_HANDLE key, const Input& data, const Place& place, DWORD flags = 0,
                            const Padding& padding = {});
    SECURITY_STATUS decrypt(NCRYPT_KEY_HANDLE key, const Input& data, const Place& place, DWORD flags = 0,
                            const Padding& padding = {});
    SECURITY_STATUS signHash(NCRYPT_KEY_HANDLE key, const Input& hash, const Place& place, DWORD flags = 0,
                             const Padding& padding = {});
    SECURITY_STATUS verifySignature(NCRYPT_KEY_HANDLE key, const Input& hash, const Input& signature, DWORD flags = 0,
                                    const Padding& padding = {});

    SECURITY_STATUS promptUser(NCRYPT_KEY_HANDLE key, LPCWSTR operation, DWORD flags = 0);

    // Any call with arguments that the above have no words for, and those of the slots that take none.
    SECURITY_STATUS call(const std::string& name, const std::string& arguments, const std::function<SECURITY_STATUS()>& call);

    KeyStorageFunctionTable& table;

private:
    // Where the result goes and what its room is: the last arguments that five slots share.
    using HandsOutInto = std::function<SECURITY_STATUS(PBYTE output, DWORD room, DWORD* result)>;

    template <class... Words>
    std::string withProvider(const Words&... words) const
    {
        return argumentsAfter(provider, words...);
    }
    SECURITY_STATUS handsOutInto(const std::string& name, const std::string& arguments, const Place& place,
                                 const HandsOutInto& call);
    Handle make(const std::string& name, const std::string& arguments, const char* kind,
                const std::function<SECURITY_STATUS(Handle*)>& call);
    NCRYPT_KEY_HANDLE owned(NCRYPT_KEY_HANDLE key);

    std::vector<NCRYPT_PROV_HANDLE> providers_;
    std::vector<NCRYPT_KEY_HANDLE> keys_;
};

} // namespace quelta::test
