#pragma once

#include "support/recorded_calls.h"

#include "ksp/function_table.h"

#include <array>
#include <concepts>
#include <variant>
#include <vector>

namespace quelta::test {

ULONG_PTR addressOf(const void* object);
std::string statusText(SECURITY_STATUS status);

// A slot of the table, found as by one who knows the published layout alone.
struct KspSlot {
    // As many as any slot takes; the calling convention lets the callee ignore what is left over.
    using Values = std::array<ULONG_PTR, 9>;

    SECURITY_STATUS operator()(const Values& values) const { return std::apply(function, values); }

    std::string name;
    // A letter for each argument, a capital for those that it can't do without. P the provider, K a key, T a text, s a key spec,
    // f flags, I an input and its length, O an output, its room and where its length goes, H where it puts a handle or another
    // thing, x what it does not look at.
    std::string arguments;
    SECURITY_STATUS(WINAPI* function)
    (ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR, ULONG_PTR);
};

// In their order.
const std::vector<KspSlot>& kspSlots();
const KspSlot& kspSlot(std::string_view name);

// The slots of the key storage table, recorded. What they hand out is freed at the end, if it is not freed before.
class KspCalls : public RecordedCalls {
public:
    // A handle, a key spec, flags.
    struct Number {
        Number(std::integral auto number) : value(static_cast<ULONG_PTR>(number)) {}
        ULONG_PTR value;
    };
    using Stated = std::variant<Number, LPCWSTR, Input, Place>;

    explicit KspCalls(Recorder& recorder) : RecordedCalls(recorder) {}
    ~KspCalls();
    KspCalls(const KspCalls&) = delete;
    KspCalls& operator=(const KspCalls&) = delete;

    // Calls a slot with the provider and, in their order, what else it looks at; what is left out at the end is nothing. Gives
    // the new handle, 0 if there is none.
    Handle operator()(const char* slot, const std::vector<Stated>& stated = {});
    NCRYPT_PROV_HANDLE openProvider(LPCWSTR name = L"", DWORD flags = 0);
    // What these two name is freed. A state is null before its first key.
    void enumAlgorithms(DWORD operations);
    void enumKeys(void*& state);

    // The provider that all calls go to: the one opened last, or another that a scenario puts here.
    NCRYPT_PROV_HANDLE provider = 0;

private:
    std::vector<Handle> providers_;
    std::vector<Handle> keys_;
};

} // namespace quelta::test
