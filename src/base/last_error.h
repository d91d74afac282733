#pragma once

#include <windows.h>

namespace quelta {

// Puts the thread's last error back as it was found, whatever is called in between.
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
