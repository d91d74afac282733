// The steps of quelta check, in their order. Each says what it found, and what to do where that is not well.
#pragma once

#include "base/windows_objects.h"
#include "tools/commands/commands.h"

#include <filesystem>
#include <memory>
#include <span>

namespace quelta::tools {

// A note does no harm; a step that was left out has its reason in a step before.
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
    // Loaded only if both files are sound and fit each other: otherwise they may crash.
    bool filesFit = false;
    Library loaded = {};
    std::unique_ptr<TokenProvider> csp = {};
    std::unique_ptr<TokenProvider> ksp = {};
    std::vector<ListedKey> keys = {};
    Wiped<std::string> pin = {};
    bool pinAccepted = false;
};

// What a step can't do without; each has need of all before it.
enum class Need { nothing, fittingFiles, module, token, key, certificate, pin };

struct CheckStep {
    const char* name;
    Need need;
    // A Failure that it throws is a finding too, "failed".
    Found (*look)(Examination& examination);
};

std::span<const CheckStep> installationSteps();
std::span<const CheckStep> tokenSteps();

} // namespace quelta::tools
