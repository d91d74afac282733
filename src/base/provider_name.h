// The provider's name in Windows and in applications, the same for both interfaces. Scripts read the name from this file too.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace quelta {

inline constexpr char providerName[] = "Quelta Cryptographic Provider CSP";

template <std::size_t size>
consteval std::array<wchar_t, size> widened(const char (&text)[size])
{
    std::array<wchar_t, size> wide{};
    for (std::size_t i = 0; i < size; ++i) wide[i] = static_cast<wchar_t>(text[i]);
    return wide;
}

inline constexpr auto wideProviderNameArray = widened(providerName);
inline constexpr const wchar_t* wideProviderName = wideProviderNameArray.data();

// Returns the path of CryptoAPI's registry key for the provider, below HKEY_LOCAL_MACHINE.
inline std::string providerRegistryKey()
{
    return std::string("Software\\Microsoft\\Cryptography\\Defaults\\Provider\\") + providerName;
}

} // namespace quelta
