// The steps of quelta check, in their order. Each tells its finding, and what to do if something is wrong.
#pragma once

#include "base/windows_objects.h"
#include "tools/commands/commands.h"

#include <filesystem>
#include <memory>
#include <span>

namespace quelta::tools {

// A note is no failure. A step is left out because of an earlier step.
enum class Verdict { ok, note, failed, leftOut };

struct Found {
    Verdict verdict;
    std::string text;
};

// The findings so far.
struct Examination {
    CheckOptions options = {};
    // Empty if there is none.
    std::filesystem::path module = {};
    std::filesystem::path deviceLibrary = {};
    // True if both files are sound and fit each other. Otherwise loading them may crash.
    bool filesFit = false;
    Library loaded = {};
    // True if applications find this module through CryptoAPI.
    bool registered = false;
    std::unique_ptr<TokenProvider> csp = {};
    std::unique_ptr<TokenProvider> ksp = {};
    std::vector<ListedKey> keys = {};
    Wiped<std::string> pin = {};
    bool pinAccepted = false;
};

// The precondition of a step. Each value includes all earlier ones.
enum class Need { nothing, fittingFiles, module, registration, token, key, certificate, pin };

struct CheckStep {
    const char* name;
    Need need;
    // A thrown Failure becomes a finding, "failed".
    Found (*look)(Examination& examination);
};

// Only the later two groups run code of the device library.
std::span<const CheckStep> fileSteps();
std::span<const CheckStep> loadingSteps();
std::span<const CheckStep> tokenSteps();

} // namespace quelta::tools
