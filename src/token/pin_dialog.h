#pragma once

#include <string>

namespace quelta {

// Shows the PIN dialog, modal on the calling thread, and always returns 0. `dialogPin` receives the text typed when Login was
// pressed; it is empty after Cancel, after closing, and where the dialog could not be made.
int showPasswordDialog(std::string& dialogPin);

} // namespace quelta
