#include "base/table.h"
#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/provider.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cwchar>
#include <memory>

namespace quelta {

namespace {

struct EnumeratedAlgorithm {
    const wchar_t* name;
    DWORD algorithmClass;
    DWORD operations;
};

constexpr EnumeratedAlgorithm enumeratedAlgorithms[] = {
    {L"RSA", NCRYPT_ASYMMETRIC_ENCRYPTION_INTERFACE, NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_SIGNATURE_OPERATION},
    {L"ECDSA_P256", NCRYPT_SIGNATURE_INTERFACE, NCRYPT_SIGNATURE_OPERATION},
    {L"ECDSA_P384", NCRYPT_SIGNATURE_INTERFACE, NCRYPT_SIGNATURE_OPERATION},
    {L"ECDSA_P521", NCRYPT_SIGNATURE_INTERFACE, NCRYPT_SIGNATURE_OPERATION},
};

constexpr std::wstring_view supportedAlgorithmNames[] = {
    L"RSA", L"ECDSA_P256", L"ECDSA_P384", L"ECDSA_P521", L"SHA256", L"SHA1", L"SHA384", L"SHA512",
};

// Memory for callers comes from malloc, because KSPFreeBuffer releases it with free.
struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <class Type>
using Allocated = std::unique_ptr<Type, Free>;

template <class Type>
Allocated<Type> allocate(std::size_t count)
{
    // Allocate at least one byte: null from malloc means exhausted memory here.
    void* memory = std::malloc(std::max<std::size_t>(count * sizeof(Type), 1));
    if (!memory) throw std::bad_alloc();
    return Allocated<Type>(static_cast<Type*>(memory));
}

Allocated<wchar_t> copyOf(const wchar_t* text)
{
    Allocated<wchar_t> copy(_wcsdup(text));
    if (!copy) throw std::bad_alloc();
    return copy;
}

std::vector<EnumeratedAlgorithm> algorithmsFor(DWORD operations)
{
    std::vector<EnumeratedAlgorithm> selected;
    std::ranges::copy_if(enumeratedAlgorithms, std::back_inserter(selected),
                         [=](const auto& row) { return operations == 0 || (row.operations & operations) != 0; });
    return selected;
}

// KSPFreeBuffer frees only the block. The list inside stays allocated, as do the texts of key names and algorithms: callers have
// no other function, and KSPFreeBuffer does not know what a block contains.
struct EnumerationState {
    std::uint64_t next = 0;
    std::vector<QueltaKeyPair> pairs;
};

void* startEnumeration(const KspProvider& provider)
{
    auto memory = allocate<EnumerationState>(1);
    std::construct_at(memory.get(), EnumerationState{0, provider.token().keyPairs()});
    return memory.release();
}

DWORD legacyKeySpecOf(std::uint32_t usage)
{
    if (usage == usageSigning) return AT_SIGNATURE;
    return canExchangeKeys(usage) ? AT_KEYEXCHANGE : 0;
}

NCryptKeyName* nameOf(const QueltaKeyPair& pair)
{
    auto name = copyOf(wideKeyName(pair).c_str());
    auto algorithm = copyOf(std::wstring(algorithmNameOf(pair.algorithm)).c_str());
    auto record = allocate<NCryptKeyName>(1);
    return std::construct_at(record.release(),
                             NCryptKeyName{name.release(), algorithm.release(), legacyKeySpecOf(pair.usage), 0});
}

} // namespace

SECURITY_STATUS WINAPI KSPIsAlgSupported(NCRYPT_PROV_HANDLE, LPCWSTR pszAlgId, DWORD)
{
    return slot("KSPIsAlgSupported", [&]() -> SECURITY_STATUS {
        if (!pszAlgId) return NTE_INVALID_PARAMETER;
        const bool supported = std::ranges::find(supportedAlgorithmNames, pszAlgId) != std::end(supportedAlgorithmNames);
        return supported ? statusDone : NTE_NOT_SUPPORTED;
    });
}

SECURITY_STATUS WINAPI KSPEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgOperations, DWORD* pdwAlgCount,
                                         NCryptAlgorithmName** ppAlgList, DWORD)
{
    return slot("KSPEnumAlgorithms", [&]() -> SECURITY_STATUS {
        if (!providerOf(hProvider)) return NTE_INVALID_HANDLE;
        if (!pdwAlgCount || !ppAlgList) return NTE_INVALID_PARAMETER;
        const auto selected = algorithmsFor(dwAlgOperations);
        auto list = allocate<NCryptAlgorithmName>(selected.size());
        // If one copy finds no memory, the other copies are freed.
        std::array<Allocated<wchar_t>, std::size(enumeratedAlgorithms)> names;
        std::ranges::transform(selected, names.begin(), copyOf, &EnumeratedAlgorithm::name);
        for (std::size_t i = 0; i < selected.size(); ++i) {
            std::construct_at(list.get() + i,
                              NCryptAlgorithmName{names[i].release(), selected[i].algorithmClass, selected[i].operations, 0});
        }
        *pdwAlgCount = static_cast<DWORD>(selected.size());
        *ppAlgList = list.release();
        logDebug("KSP: Enumerated ", selected.size(), " algorithms");
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPEnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR, NCryptKeyName** ppKeyName, PVOID* ppEnumState, DWORD)
{
    return slot("KSPEnumKeys", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        if (!ppKeyName || !ppEnumState) return NTE_INVALID_PARAMETER;
        if (!*ppEnumState) *ppEnumState = startEnumeration(*provider);
        auto& state = *static_cast<EnumerationState*>(*ppEnumState);
        if (state.next >= state.pairs.size()) {
            logDebug("KSP: No more keys to enumerate");
            return NTE_NO_MORE_ITEMS;
        }
        const QueltaKeyPair& pair = state.pairs[static_cast<std::size_t>(state.next)];
        // Make the log text first. If memory ran out after ++next, the key would be skipped.
        const std::string name = keyName(pair);
        *ppKeyName = nameOf(pair);
        ++state.next;
        logDebug("KSP: Enumerated key: ", name);
        return statusDone;
    });
}

} // namespace quelta
