// How the installer ends "quelta publish --watch" in every session before it replaces the files that the program has open.
#pragma once

namespace quelta {

// An event that exists while watching programs have to end. They look for it with OpenEvent(SYNCHRONIZE), since it is the
// installer that makes it: no user's program then needs an object that others can reach.
constexpr auto publishingEndsEvent = L"Global\\Quelta publishing ends";

} // namespace quelta
