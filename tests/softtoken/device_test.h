#pragma once

#include "tools/scratch_folder.h"

#include "store/pin.h"
#include "store/token_store.h"
#include "token/device_functions.h"

#include <gtest/gtest.h>

namespace quelta::softtoken {

// The built library over a token of the test's own, which this process makes and changes as the command line does.
class Device : public ::testing::Test {
public:
    static constexpr const char* rightPin = "1234";
    static constexpr int attempts = 3;

    Device()
    {
        TokenState state;
        state.serial = "SOFT-1";
        state.pin = newPin(rightPin, attempts);
        createToken(folder / "", state, true);
        plugIn(folder / "");
    }

    // Where the library looks from now on.
    static void plugIn(const std::filesystem::path& where) { SetEnvironmentVariableW(L"QUELTA_TOKEN_DIR", where.c_str()); }
    static const char* serial() { return "SOFT-1"; }

    void changePin(const std::string& pin) const
    {
        changeToken(folder / "", [&](TokenState& state) {
            state.pin = newPin(pin, attempts);
            return true;
        });
    }

    // The remaining attempts are -1 if the library does not tell.
    static PinAnswer validate(const std::string& pin)
    {
        PinAnswer answer{0, -1};
        answer.result = quelta_validatePassword(serial(), pin.c_str(), 1, &answer.remaining, nullptr);
        return answer;
    }

    const ScratchFolder folder;
};

} // namespace quelta::softtoken
