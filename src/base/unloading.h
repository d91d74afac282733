// Helpers for the end of the module: they detect process exit, and free memory of the C++ runtime at unload.
#pragma once

#include <windows.h>

#include <exception>

#ifdef __GLIBCXX__
namespace __gnu_cxx {
// This function belongs to the C++ runtime, but none of its headers declares it.
void __freeres() noexcept; // NOLINT(bugprone-reserved-identifier)
} // namespace __gnu_cxx
#endif

namespace quelta {

// True if the process is exiting. Windows has then ended the other threads already: nobody is left to wait for, and a lock that
// one of them held stays locked. This function calls the loader, so a thread that an unload waits for must not call it.
inline bool processIsExiting()
{
    using Query = BOOLEAN(NTAPI*)();
    const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    const FARPROC function = ntdll ? GetProcAddress(ntdll, "RtlDllShutdownInProgress") : nullptr;
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(function));
    return query && query();
}

// Frees, when destroyed, the 73 KB that the statically linked C++ runtime reserves to throw exceptions in exhausted memory.
// No code may throw afterwards. So this is the first member, destroyed last, of the one object that is destroyed at unload.
class ExceptionReserve {
public:
    ExceptionReserve() = default;
    ExceptionReserve(const ExceptionReserve&) = delete;
    ExceptionReserve& operator=(const ExceptionReserve&) = delete;
    ~ExceptionReserve()
    {
#ifdef __GLIBCXX__
        // At process exit a killed thread may have left the heap locked. The memory is released with the process anyway.
        if (!processIsExiting()) __gnu_cxx::__freeres();
#endif
    }
};

} // namespace quelta
