#pragma once

#include "formats/key_file.h"

namespace quelta::softtoken {

constexpr std::uint64_t pkcs12Version = 3;

// Checks the file's message code first, so that a wrong password is told from a damaged file.
KeyFile readPkcs12(ByteView der, const std::string& password);

} // namespace quelta::softtoken
