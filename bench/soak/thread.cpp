#include "soak/thread.h"

#include "base/table.h"
#include "soak/weather.h"

#include <cstdio>

namespace quelta::soak {

namespace {

struct CodeName {
    Code code;
    const char* name;
};

constexpr CodeName codeNames[] = {
    {noCode, "no error of its own"},
    {NTE_BAD_DATA, "NTE_BAD_DATA"},
    {NTE_BAD_HASH, "NTE_BAD_HASH"},
    {NTE_BAD_KEY, "NTE_BAD_KEY"},
    {NTE_BAD_SIGNATURE, "NTE_BAD_SIGNATURE"},
    {NTE_BAD_TYPE, "NTE_BAD_TYPE"},
    {NTE_DEVICE_NOT_FOUND, "NTE_DEVICE_NOT_FOUND"},
    {NTE_FAIL, "NTE_FAIL"},
    {NTE_INTERNAL_ERROR, "NTE_INTERNAL_ERROR"},
    {NTE_KEYSET_ENTRY_BAD, "NTE_KEYSET_ENTRY_BAD"},
    {NTE_NOT_FOUND, "NTE_NOT_FOUND"},
    {NTE_NO_KEY, "NTE_NO_KEY"},
    {NTE_PROVIDER_DLL_FAIL, "NTE_PROVIDER_DLL_FAIL"},
    {NTE_SILENT_CONTEXT, "NTE_SILENT_CONTEXT"},
    {NTE_TOKEN_KEYSET_STORAGE_FULL, "NTE_TOKEN_KEYSET_STORAGE_FULL"},
    {NTE_VALIDATION_FAILED, "NTE_VALIDATION_FAILED"},
};

} // namespace

std::string nameOfCode(Code code)
{
    if (const auto* known = findRow(codeNames, &CodeName::code, code)) return known->name;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08lX", static_cast<unsigned long>(code));
    return text.data();
}

bool Thread::judge(CallName call, Code code)
{
    // The number is read last: whoever ends a weather changes the row first.
    const Weather& weather = weatherNow(board);
    const bool sameWeather = own.weather == board.weatherNumber;
    const Call& row = calls[call.row];
    ++own.count;
    const std::string what = std::string(row.name) + " (token: " + weather.name + (sameWeather ? ")" : " by then)");
    if (code == 0) {
        ++own.outcomes[call.row].done;
        if (sameWeather && !(weather.causes & turning) && (weather.causes & row.never))
            find(what + " was done, which the token can't have: look where the answer comes from");
        return true;
    }
    const auto named = std::ranges::find(row.refusals, code, &Refusal::code) - row.refusals;
    const std::string refused = what + (code == accepted ? " was accepted" : " was refused with " + nameOfCode(code));
    if (named == mostRefusals)
        find(refused + ", which it never may be: look where that comes from");
    else if (++own.outcomes[call.row].refused[named]; sameWeather && !(row.refusals[named].by & (weather.causes | silence)))
        find(refused + ", and nothing stood against it: look into the log at level 3");
    return false;
}

void Thread::require(bool right, CallName call, const char* otherwise)
{
    if (!right)
        find(std::string(calls[call.row].name) + " (token: " + weatherNow(board).name + ") was done, but " + otherwise +
             ": look into the log at level 3");
}

void Thread::find(const std::string& what)
{
    const std::string text = what.substr(0, sizeof Finding{}.text - 1);
    for (Finding& finding : own.findings) {
        if (finding.times != 0 && text != finding.text) continue;
        text.copy(finding.text, text.size());
        ++finding.times;
        return;
    }
}

Bytes Thread::bytes(std::size_t count)
{
    Bytes made(count);
    for (auto& byte : made) byte = static_cast<unsigned char>(below(256));
    return made;
}

WrongPin::WrongPin(Board& board) : board_(board)
{
    ++board_.wrongBegun;
    allowed_ = weatherNow(board_).habit >= Habit::wrongThenRight;
    if (allowed_) ++board_.wrongEntered;
}

} // namespace quelta::soak
