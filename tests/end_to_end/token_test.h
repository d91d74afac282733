#pragma once

#include "end_to_end/interfaces.h"
#include "support/dialog_user.h"
#include "support/log_folder.h"
#include "support/scratch_folder.h"
#include "support/test_bytes.h"

namespace quelta::test {

// A folder for one test, which programs under Wine and native programs use. It has a token of its own with the keys and
// certificates that make_shared.sh made.
class TokenFolder : public ScratchFolder {
public:
    TokenFolder();
    // Runs native commands in the folder, and stops at the first that fails. The failure's text is their output. $shared is the
    // folder with the keys and certificates of the token. "refuses COMMAND..." fails if the command succeeds.
    ::testing::AssertionResult shell(const std::string& commands) const;
};

// Runs quelta-token on the test's token.
void drive(const std::string& command);

// Tests the built module with such a token, after the PIN was given. The provider is registered for CryptoAPI in this process's
// own registry. A window that the test did not announce is a failure.
class TokenTest : public ::testing::Test {
protected:
    TokenTest();

    const TokenFolder folder;
    LogFolder log;
    DialogUser user;
    const KeyStorage storage;
};

} // namespace quelta::test
