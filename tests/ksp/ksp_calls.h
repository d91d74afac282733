#pragma once

#include "support/recorded_calls.h"

#include "ksp/function_table.h"

namespace quelta::test {

std::string statusText(SECURITY_STATUS status);

// The slots of the table, in their order.
const std::vector<Function>& kspSlots();
const Function& kspSlot(std::string_view name);

// The slots of the key storage table, recorded.
class KspCalls : public RecordedCalls {
public:
    explicit KspCalls(Recorder& recorder) : RecordedCalls(recorder) {}
    ~KspCalls();

    NCRYPT_PROV_HANDLE openProvider(LPCWSTR name = L"", DWORD flags = 0);
    // What these two name is freed. A state is null before its first key.
    void enumAlgorithms(DWORD operations);
    void enumKeys(void*& state);

    NCRYPT_PROV_HANDLE& provider = opened_;

protected:
    const std::vector<Function>& functions() const override { return kspSlots(); }
    std::pair<LONG, std::string> call(const Function& function, const Function::Values& values) const override;
    bool succeeded(LONG result) const override { return result == 0; }
    const char* kindOf(const Function& function) const override
    {
        return function.name == "KSPOpenProvider" ? "provider" : "key";
    }
};

} // namespace quelta::test
