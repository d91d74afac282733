#pragma once

#include <string>

namespace quelta {

// Shows the PIN dialog, modal on the calling thread, and always returns 0. `dialogPin` receives the text when the user presses
// Login. It is empty after Cancel, after closing, and if the dialog could not be created.
int showPasswordDialog(std::string& dialogPin);

} // namespace quelta
