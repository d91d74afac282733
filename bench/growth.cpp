#include "calls.h"
#include "instant/instant_exports.h"
#include "measure.h"
#include "sections.h"

#include <cmath>
#include <stdexcept>

namespace quelta::bench {

namespace {

void setToken(unsigned keys, unsigned depth, bool issuersFirst)
{
    void* const set = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("QueltaDSCLibrary.dll"), "bench_setToken"));
    if (!set) throw std::runtime_error("this is measured above the instant library: put its folder on the path");
    reinterpret_cast<decltype(bench_setToken)*>(set)(keys, depth, issuersFirst);
}

void enumerateContainers(const OpenModule& module)
{
    BYTE name[64];
    for (DWORD flag = CRYPT_FIRST;; flag = CRYPT_NEXT) {
        DWORD length = sizeof name;
        if (!module.csp().getProvParam(module.context(), PP_ENUMCONTAINERS, name, &length, flag)) return;
    }
}

void enumerateKeys(const OpenModule& module)
{
    NCryptKeyName* name = nullptr;
    PVOID state = nullptr;
    while (!module.ksp().EnumKeys(module.provider(), nullptr, &name, &state, 0)) module.ksp().FreeBuffer(name);
    module.ksp().FreeBuffer(state);
}

void exportChain(const OpenModule& module)
{
    DWORD length = 0;
    expectTrue(module.csp().getProvParam(module.context(), PP_CERTCHAIN, nullptr, &length, 0), "CPGetProvParam");
}

struct Growing {
    const char* name;
    std::function<void(const OpenModule&)> call;
};

std::vector<Growing> growingCalls()
{
    return {
        {"acquire and release", [](const OpenModule& module) { module.csp().releaseContext(module.acquire(), 0); }},
        {"PP_ENUMCONTAINERS, all", enumerateContainers},
        {"PP_CERTCHAIN", exportChain},
        {"KP_CERTIFICATE",
         [](const OpenModule& module) {
             HCRYPTKEY key = 0;
             expectTrue(module.csp().getUserKey(module.context(), AT_SIGNATURE, &key), "CPGetUserKey");
             DWORD length = 0;
             expectTrue(module.csp().getKeyParam(module.context(), key, KP_CERTIFICATE, nullptr, &length, 0), "CPGetKeyParam");
             module.csp().destroyKey(module.context(), key);
         }},
        {"KSPOpenKey", [](const OpenModule& module) { module.ksp().FreeKey(module.provider(), module.openKey()); }},
        {"KSPEnumKeys, all", enumerateKeys},
    };
}

} // namespace

Figures measureGrowth(const std::string& pin)
{
    const LogLevel set(2);
    const std::vector<double> sizes = {1, 10, 100, 1000};
    constexpr const char* headings[] = {"1", "10", "100", "1000"};
    Figures figures{"With so many key pairs and certificates on the token, in microseconds, at level 2",
                    {{"call", "call"}, {"issuers", "issuers"}}};
    for (const char* heading : headings) figures.columns.push_back({heading, heading});
    figures.columns.push_back({"exponent", "exponent", 2});
    figures.columns.push_back({"last", "from 100 to 1000", 2});
    for (const bool issuersFirst : {false, true}) {
        std::vector<std::vector<double>> times(growingCalls().size());
        for (const double size : sizes) {
            setToken(static_cast<unsigned>(size), 3, issuersFirst);
            const OpenModule module(pin);
            auto calls = growingCalls();
            for (std::size_t i = 0; i < calls.size(); ++i) times[i].push_back(microsecondsOf([&] { calls[i].call(module); }));
        }
        for (std::size_t i = 0; i < times.size(); ++i) {
            nlohmann::ordered_json row = {{"call", growingCalls()[i].name}, {"issuers", issuersFirst ? "first" : "last"}};
            for (std::size_t at = 0; at < sizes.size(); ++at) row[headings[at]] = std::round(times[i][at]);
            row["exponent"] = fittedExponent(sizes, times[i]);
            row["last"] = std::log10(times[i][3] / times[i][2]);
            figures.rows.push_back(row);
        }
    }
    return figures;
}

Figures measureChains(const std::string& pin)
{
    const LogLevel set(2);
    Figures figures{"PP_CERTCHAIN with ten keys and so many certificates in a chain, in microseconds, at level 2",
                    {{"certificates", "certificates"}, {"first", "issuers first"}, {"last", "issuers last"}}};
    for (const unsigned depth : {1U, 2U, 3U, 5U, 10U}) {
        nlohmann::ordered_json row = {{"certificates", depth}};
        for (const bool issuersFirst : {true, false}) {
            setToken(10, depth, issuersFirst);
            const OpenModule module(pin);
            row[issuersFirst ? "first" : "last"] = std::round(microsecondsOf([&] { exportChain(module); }));
        }
        figures.rows.push_back(row);
    }
    return figures;
}

} // namespace quelta::bench
