#pragma once

#include <memory>
#include <new>

#include <windows.h>

namespace quelta::softtoken {

// Holds one T for each thread that asks. A T is destroyed with its thread or with this object. thread_local will not do: its
// destructors would keep the library loaded until every thread that used it has ended.
template <class T>
class PerThread {
public:
    PerThread() : slot_(FlsAlloc(destroy)) {}
    PerThread(const PerThread&) = delete;
    PerThread& operator=(const PerThread&) = delete;
    ~PerThread() { FlsFree(slot_); }

    T& mine()
    {
        if (T* known = static_cast<T*>(FlsGetValue(slot_))) return *known;
        auto made = std::make_unique<T>();
        if (!FlsSetValue(slot_, made.get())) throw std::bad_alloc();
        return *made.release();
    }

private:
    static void WINAPI destroy(void* value) { const std::unique_ptr<T> owned(static_cast<T*>(value)); }

    const DWORD slot_;
};

} // namespace quelta::softtoken
