#include "csp/supported_algorithms.h"

#include <algorithm>

namespace quelta {

namespace {

static_assert(sizeof(PROV_ENUMALGS) == 32);
static_assert(sizeof(PROV_ENUMALGS_EX) == 88);

template <std::size_t Room>
void copyName(std::string_view name, char (&field)[Room])
{
    std::ranges::copy(name.substr(0, Room), field);
}

} // namespace

PROV_ENUMALGS enumAlgsOf(const SupportedAlgorithm& algorithm)
{
    PROV_ENUMALGS record{};
    record.aiAlgid = algorithm.id;
    record.dwBitLen = algorithm.defaultBits;
    record.dwNameLen = static_cast<DWORD>(algorithm.shortName.size());
    copyName(algorithm.shortName, record.szName);
    return record;
}

PROV_ENUMALGS_EX enumAlgsExOf(const SupportedAlgorithm& algorithm)
{
    PROV_ENUMALGS_EX record{};
    record.aiAlgid = algorithm.id;
    record.dwDefaultLen = algorithm.defaultBits;
    record.dwMinLen = algorithm.minimumBits;
    record.dwMaxLen = algorithm.maximumBits;
    record.dwProtocols = algorithm.protocols;
    record.dwNameLen = static_cast<DWORD>(algorithm.shortName.size());
    copyName(algorithm.shortName, record.szName);
    record.dwLongNameLen = static_cast<DWORD>(algorithm.longName.size());
    copyName(algorithm.longName, record.szLongName);
    return record;
}

} // namespace quelta
