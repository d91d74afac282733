// Strings and vectors cross the boundary to the device library, and two compilers' insides of them differ: a module of this
// compiler above a library of another would read garbage, and free it on the wrong heap.
#pragma once

namespace quelta {

// True if the loaded device library brings the runtime of another compiler than this module's. Says so in the log, with what to
// use instead. To be asked before the first call that passes a class of the standard library.
bool deviceLibraryIsForeign();

} // namespace quelta
