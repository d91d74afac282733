// Strings and vectors cross the boundary to the device library, and their layout depends on the compiler. With a library of
// another compiler the module would read garbage and free it on the wrong heap.
#pragma once

namespace quelta {

// True if the loaded device library uses the runtime of another compiler than this module. Then logs which module to use instead.
// Call this before the first call that passes a standard-library class.
bool deviceLibraryIsForeign();

} // namespace quelta
