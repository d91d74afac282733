#pragma once

#include "end_to_end/work_folder.h"
#include "support/dialog_user.h"
#include "support/log_folder.h"

#include <gtest/gtest.h>

#include <string>

namespace quelta::test {

// The PIN of every token here.
constexpr const char tokenPin[] = "135790";
// Bits of the token's RSA keys; the keys are called "rsa1024" and so on, those on curves "p256", "p384", "p521".
constexpr unsigned rsaSizes[] = {1024, 2048, 3072, 4096};

// The interface that a test goes through.
enum class Way { csp, ksp };
inline std::string nameOfWay(const ::testing::TestParamInfo<Way>& row)
{
    return row.param == Way::csp ? "csp" : "ksp";
}

// The built module over a software token of the test's own, which holds the keys and certificates that make_shared.sh made. The
// provider is registered for CryptoAPI in this process's own registry. A window that the test does not announce is a failure.
class EndToEndTest : public ::testing::Test {
protected:
    EndToEndTest();

    // Runs quelta-token on the test's token.
    void drive(const std::string& command) const;

    WorkFolder folder;
    LogFolder log;
    DialogUser user;
};

// What a disabled test starts with, to work on the token that QUELTA_TOKEN_DIR already names.
void registerBuiltModule();
std::string builtModule();
// The identifier of a key of the token, by its label.
std::string keyName(const std::string& label);

} // namespace quelta::test
