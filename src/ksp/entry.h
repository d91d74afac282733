// What every slot of the key storage table has in common: its name in the log, no exception out.
#pragma once

#include "log/log_writer.h"

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>
#include <wincrypt.h>

#include <new>
#include <utility>

namespace quelta {

constexpr SECURITY_STATUS statusDone = 0;

template <class Body>
SECURITY_STATUS slot(const char* name, Body body) noexcept
{
    logDebug(name);
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return NTE_NO_MEMORY;
    } catch (...) {
        return NTE_INTERNAL_ERROR;
    }
}

} // namespace quelta
