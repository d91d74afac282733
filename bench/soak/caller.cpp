#include "soak/caller.h"

#include <cstdio>

namespace quelta::soak {

// Flushes, since the process may hang or die. Begins a new line, since the module's own output may lack a line's end.
void find(const std::string& what)
{
    std::printf("\nWRONG: %s\n", what.c_str());
    std::fflush(stdout);
}

void Caller::judge(std::size_t row, std::uint32_t moment, Code code) const
{
    const Call& call = calls[row];
    const State& state = stateAt(moment);
    ++(code == 0 ? board.done : board.refused)[row];
    char answer[32];
    std::snprintf(answer, sizeof answer, "answered 0x%08lX", static_cast<unsigned long>(code));
    const std::string what = std::string(call.name) + " (token: " + state.name + ") " + answer;
    if (code != 0 && std::ranges::find(call.refusals, code) == std::end(call.refusals))
        find(what + ", which it never may be: see its row in bench/soak/calls.h");
    const bool settled = &state != &states[changing] && moment == board.moment;
    if (code == 0 && (call.least == more || (settled && state.offers < call.least)))
        find(what + ", which it can't be: look where the answer comes from");
    if (code != 0 && settled && state.offers >= call.enough)
        find(what + ", although nothing stands against it: look into the log at level 3");
}

} // namespace quelta::soak
