// What a thread does: a session of some jobs through one of the interfaces, from opening to release.
#pragma once

#include "soak/known.h"
#include "soak/thread.h"

#include <functional>

namespace quelta::soak {

// Beside this program, where it is registered, too.
inline constexpr const char moduleName[] = "QueltaCSP.dll";

void useCryptoApi(Thread& thread, const Known& known);
void useKeyStorage(Thread& thread, const Known& known);

// Five wrong PINs and none other: by each way that a PIN takes.
void enterWrongPins(Thread& thread, const Known& known);
void enterWrongPinsByCryptoApi(Thread& thread, const Known& known);
// Asks for the PIN if there is none.
void decryptByCryptoApi(Thread& thread, const Known& known);

// What each process does in the end, when nobody else calls and each answer is known beforehand. `reach` returns when a stage has
// come; what was done at the one before is over by then.
void playLastAct(Thread& thread, const Known& known, std::size_t process, const std::function<void(Stage)>& reach);

} // namespace quelta::soak
