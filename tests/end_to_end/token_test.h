#pragma once

#include "end_to_end/interfaces.h"
#include "support/dialog_user.h"
#include "support/log_folder.h"
#include "support/scratch_folder.h"
#include "support/test_bytes.h"

namespace quelta::test {

// A folder under the build for one test, where programs under Wine and native ones meet, with a token of the test's own, which
// holds the keys and certificates that make_shared.sh made.
class TokenFolder : public ScratchFolder {
public:
    TokenFolder();
    // Runs native commands in the folder, up to the first that fails; what they said is the failure's text. $shared is the folder
    // with the keys and certificates of the token; "refuses COMMAND..." fails if the command does not.
    ::testing::AssertionResult shell(const std::string& commands) const;
};

// Runs quelta-token on it.
void drive(const std::string& command);

// The built module over such a token, with the PIN given already. The provider is registered for CryptoAPI in this process's own
// registry. A window that the test does not announce is a failure.
class TokenTest : public ::testing::Test {
protected:
    TokenTest();

    const TokenFolder folder;
    LogFolder log;
    DialogUser user;
    const KeyStorage storage;
};

} // namespace quelta::test
