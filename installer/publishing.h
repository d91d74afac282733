#pragma once

namespace quelta::installer {

// Ends "quelta publish --watch" in every session. Returns when no quelta.exe runs any more, or after some seconds. A program that
// still runs then keeps its files open, and Windows Installer replaces them at the next restart.
void endPublishing();

} // namespace quelta::installer
