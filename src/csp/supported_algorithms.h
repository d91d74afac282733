#pragma once

#include <windows.h>

#include <wincrypt.h>

#include <string_view>

namespace quelta {

struct SupportedAlgorithm {
    ALG_ID id;
    DWORD minimumBits;
    DWORD maximumBits;
    DWORD defaultBits;
    DWORD protocols;
    std::string_view shortName;
    std::string_view longName;
};

// The algorithms that PP_ENUMALGS and PP_ENUMALGS_EX enumerate.
constexpr SupportedAlgorithm supportedAlgorithms[] = {
    {CALG_RSA_SIGN, 1024, 4096, 2048, 0x20, "RSA-Sign", "RSA Signature Algorithm"},
    {CALG_RSA_KEYX, 1024, 4096, 2048, 0x40, "RSA-KeyX", "RSA Key Exchange Algorithm"},
    // The reported length is 256 bits, not 160: this provider has always reported it so.
    {CALG_SHA1, 256, 256, 256, 0x80, "SHA1", "SHA-1 Hash Algorithm"},
    {CALG_SHA_256, 256, 256, 256, 0x80, "SHA256", "SHA-256 Hash Algorithm"},
};

PROV_ENUMALGS enumAlgsOf(const SupportedAlgorithm& algorithm);
PROV_ENUMALGS_EX enumAlgsExOf(const SupportedAlgorithm& algorithm);

} // namespace quelta
