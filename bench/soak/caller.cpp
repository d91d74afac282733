#include "soak/caller.h"

#include <cstdio>

namespace quelta::soak {

namespace {

std::string hexOf(Code code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(code));
    return code == noCode ? "no code" : text;
}

} // namespace

// Flushes, since the process may hang or die. Begins a line: the module prints without a line's end if it can't write its log.
void find(const std::string& what)
{
    std::printf("\nWRONG: %s\n", what.c_str());
    std::fflush(stdout);
}

void Caller::judge(std::size_t row, std::uint32_t moment, Code code) const
{
    const Call& call = calls[row];
    const State& state = stateAt(moment);
    const std::string name = std::string(call.name) + " (token: " + state.name + ")";
    ++(code == 0 ? board.done : board.refused)[row];
    if (code != 0 && std::ranges::find(call.refusals, code) == std::end(call.refusals))
        find(name + " was refused with " + hexOf(code) + ", which it never may be: see its row in bench/soak/calls.h");
    const bool settled = &state != &states[changing] && moment == board.moment;
    if (code == 0 && (call.least == more || (settled && state.offers < call.least)))
        find(name + " was done, which it can't be: look where the answer comes from");
    if (code != 0 && settled && state.offers >= call.enough)
        find(name + " was refused with " + hexOf(code) + ", although nothing stands against it: look into the log at level 3");
}

} // namespace quelta::soak
