#pragma once

#include <windows.h>

namespace quelta {

// Saves the thread's last error and restores it at the end of the scope.
class LastErrorKeeper {
public:
    LastErrorKeeper() : saved_(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(saved_); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    DWORD saved_;
};

} // namespace quelta
