// Key storage as Windows offers it (NCrypt), in the shape of a provider's own table.
#pragma once

#include "base/key_storage_table.h"

namespace quelta::tools {

// Null where the system does not load the provider: it is not registered, or this is Wine. Slots that the tool has no use for are
// null.
const KeyStorageFunctionTable* systemKeyStorage();

} // namespace quelta::tools
