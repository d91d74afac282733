// Wraps every slot of the key storage table: logs its name and stops exceptions.
#pragma once

#include "log/log_writer.h"

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>
#include <wincrypt.h>

#include <exception>
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
        logError(name, " failed: out of memory");
        return NTE_NO_MEMORY;
    } catch (const std::exception& error) {
        logError(name, " failed: ", error.what());
        return NTE_INTERNAL_ERROR;
    } catch (...) {
        logError(name, " failed: unknown exception");
        return NTE_INTERNAL_ERROR;
    }
}

} // namespace quelta
