// Sits before the screen of a working process: gives PINs, right or wrong as it is time for, and acknowledges what the module
// says.
#pragma once

#include "soak/thread.h"

#include <map>
#include <optional>
#include <thread>

namespace quelta::soak {

class SoakUser {
public:
    SoakUser(Board& board, ThreadBoard& own, std::uint32_t seed);

private:
    void meet(HWND window);
    void givePin(HWND window);
    void acknowledge(HWND window);

    Thread thread_;
    // By the thread that asks: those who were told a wrong PIN, until the token has answered, and that they were.
    std::map<DWORD, std::optional<WrongPin>> misled_;
    std::jthread worker_;
};

} // namespace quelta::soak
