// The installer ends "quelta publish --watch" in every session before it replaces the files that the program has open.
#pragma once

namespace quelta {

// The event exists while watching programs have to end. The installer makes the event, and the programs look for it with
// OpenEvent(SYNCHRONIZE). So no user's program owns an object that others can reach.
constexpr auto publishingEndsEvent = L"Global\\Quelta publishing ends";

} // namespace quelta
