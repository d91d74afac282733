// What every call of bcrypt.dll here has in common.
#pragma once

#include "base/bytes.h"
#include "common/crypto_objects.h"

#include <string_view>

namespace quelta::tools {

BcryptAlgorithm openAlgorithm(const wchar_t* name);

// Throws a Failure that begins with `what` unless the status says success.
void requireSuccess(NTSTATUS status, std::string_view what);

// bcrypt's input pointers lack const; it does not write through them.
inline PUCHAR bcryptInput(ByteView bytes)
{
    return const_cast<PUCHAR>(bytes.data());
}

Bytes randomBytes(std::size_t count);

} // namespace quelta::tools
