// What a thread does: a session of some jobs through one of the interfaces, from opening to release.
#pragma once

#include "soak/known.h"
#include "soak/thread.h"

namespace quelta::soak {

// Beside this program, where it is registered, too.
inline constexpr const char moduleName[] = "QueltaCSP.dll";

void useCryptoApi(Thread& thread, const Known& known);
void useKeyStorage(Thread& thread, const Known& known);

// Five wrong PINs and none other: by each way that a PIN takes.
void enterWrongPins(Thread& thread, const Known& known);
void enterWrongPinsByCryptoApi(Thread& thread, const Known& known);

} // namespace quelta::soak
