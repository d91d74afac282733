// Sits before the screen of a working process: gives PINs, right or wrong as it is time for, acknowledges what the module says,
// and judges both: what is asked, and what is said.
#pragma once

#include "soak/thread.h"

#include <map>
#include <optional>
#include <thread>

namespace quelta::soak {

class SoakUser {
public:
    SoakUser(Board& board, std::size_t process);

private:
    // What a thread was given last, and in which weather; a wrong PIN until the token has answered.
    struct Given {
        std::uint32_t weather = 0;
        std::optional<WrongPin> wrong;
        bool misled = false;
    };

    void meet(HWND window);
    void givePin(HWND window);
    void acknowledge(HWND window);
    void judgeMessage(const std::string& message, const Given& given, const ThreadBoard& caller);
    const ThreadBoard& callerOf(DWORD thread) const;

    ProcessBoard& process_;
    Thread thread_;
    // By who asked: threads are many, their places few.
    std::map<const ThreadBoard*, Given> given_;
    std::jthread worker_;
};

} // namespace quelta::soak
