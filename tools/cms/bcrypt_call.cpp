#include "tools/cms/bcrypt_call.h"

#include "tools/console/failure.h"

namespace quelta::tools {

BcryptAlgorithm openAlgorithm(const wchar_t* name)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    requireSuccess(BCryptOpenAlgorithmProvider(&algorithm, name, nullptr, 0), "this Windows lacks an algorithm that is needed");
    return BcryptAlgorithm(algorithm);
}

void requireSuccess(NTSTATUS status, std::string_view what)
{
    if (status < 0) fail(what, static_cast<unsigned long>(status));
}

Bytes randomBytes(std::size_t count)
{
    Bytes bytes(count);
    requireSuccess(BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(count), BCRYPT_USE_SYSTEM_PREFERRED_RNG),
                   "no random numbers from the system");
    return bytes;
}

} // namespace quelta::tools
