#pragma once

#include "support/recorded_calls.h"

#include "ksp/function_table.h"

namespace quelta::test {

// The slots of the table, in their order.
const std::vector<Function>& kspSlots();
const Function& kspSlot(std::string_view name);

// The slots of the key storage table, recorded.
class KspCalls : public RecordedCalls {
public:
    explicit KspCalls(Recorder& recorder) : RecordedCalls(recorder, kspSlots()) {}

    NCRYPT_PROV_HANDLE openProvider(LPCWSTR name = L"", DWORD flags = 0);
    // What these two name is freed. A state is null before its first key.
    void enumAlgorithms(DWORD operations);
    void enumKeys(void*& state);

    NCRYPT_PROV_HANDLE& provider = opened_;
};

} // namespace quelta::test
