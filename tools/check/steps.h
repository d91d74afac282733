// The steps of quelta check, in their order. Each says what it found, and what to do where that is not well.
#pragma once

#include "base/windows_objects.h"
#include "tools/check/check.h"
#include "tools/commands/list.h"
#include "tools/token/csp_provider.h"

#include <filesystem>
#include <memory>
#include <span>

namespace quelta::tools {

// A note does no harm; what was left out has its reason in a step before.
enum class Finding { ok, note, failed, leftOut };

struct Found {
    Finding finding;
    std::string text;
};

// What the steps have found so far.
struct Examination {
    CheckOptions options = {};
    // Empty if there is none.
    std::filesystem::path module = {};
    std::filesystem::path deviceLibrary = {};
    Library loaded = {};
    std::unique_ptr<CspProvider> csp = {};
    std::unique_ptr<TokenProvider> ksp = {};
    std::vector<ListedKey> keys = {};
    Wiped<std::string> pin = {};
};

struct CheckStep {
    const char* name;
    Found (*look)(Examination& examination);
};

std::span<const CheckStep> installationSteps();
std::span<const CheckStep> tokenSteps();

} // namespace quelta::tools
