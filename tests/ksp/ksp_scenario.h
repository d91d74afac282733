#pragma once

#include "support/scenario.h"

#include "ksp/function_table.h"

namespace quelta::test {

// Returns the slots of the table, in their order.
const std::vector<Function>& kspSlots();
const Function& kspSlot(std::string_view name);

// Calls the slots of the key storage table, and records the calls.
class KspCalls : public RecordedCalls {
public:
    explicit KspCalls(Recorder& recorder) : RecordedCalls(recorder, kspSlots()) {}

    NCRYPT_PROV_HANDLE openProvider(LPCWSTR name = L"", DWORD flags = 0);
    // These record an enumeration and free its blocks. A state is null before its first key.
    void enumAlgorithms(DWORD operations);
    void enumKeys(void*& state);

    NCRYPT_PROV_HANDLE& provider = opened_;
};

// Returns a public key as KSPExportKey writes it: the bytes as they stand, the exponent 65537.
Bytes cngBlob(const Bytes& key);

class KspScenario : public Scenario {
protected:
    using Key = NCRYPT_KEY_HANDLE;

    explicit KspScenario(bool opened = true)
    {
        if (opened) open();
    }

    void open()
    {
        silently([&] { return ksp.openProvider(); });
    }
    // Opens the key. The transcript has words for its public key and for the DER form that the token gets.
    Key opened(const QueltaKeyPair& pair);
    Key withKey(std::uint32_t algorithm, std::uint32_t usage = usageBoth) { return opened(token.withKeyPair(usage, algorithm)); }
    void get(Key key, std::initializer_list<LPCWSTR> properties)
    {
        for (const LPCWSTR name : properties) ksp("KSPGetKeyProperty", {key, name, room(66)});
    }
    // Imports a symmetric key that this process holds in clear.
    Key clearKey(const Bytes& value);

    KspCalls ksp{recorder};
};

} // namespace quelta::test
