// What a module has to know, and to leave behind, when it goes.
#pragma once

#include <windows.h>

#include <exception>

#ifdef __GLIBCXX__
namespace __gnu_cxx {
// Of the C++ runtime, which declares it in no header.
void __freeres() noexcept; // NOLINT(bugprone-reserved-identifier)
} // namespace __gnu_cxx
#endif

namespace quelta {

// At the end of a process its other threads are gone before a module is told: nobody is left to wait for, and a lock that one of
// them held stays locked. This asks the loader: not for a thread for which an unloading waits.
inline bool processIsExiting()
{
    using Query = BOOLEAN(NTAPI*)();
    const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    const FARPROC function = ntdll ? GetProcAddress(ntdll, "RtlDllShutdownInProgress") : nullptr;
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(function));
    return query && query();
}

// The statically linked C++ runtime keeps 73 KB for exceptions that find no memory, and gives them back only when asked. Nothing
// may throw after this one's end: it comes first in the one object whose destructors run when the module goes.
class ExceptionReserve {
public:
    ExceptionReserve() = default;
    ExceptionReserve(const ExceptionReserve&) = delete;
    ExceptionReserve& operator=(const ExceptionReserve&) = delete;
    ~ExceptionReserve()
    {
#ifdef __GLIBCXX__
        // A thread that the process's end has killed may have left the heap locked, and the memory goes with the process.
        if (!processIsExiting()) __gnu_cxx::__freeres();
#endif
    }
};

} // namespace quelta
