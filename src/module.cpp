#include "base/last_error.h"
#include "token/token_state.h"

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void*)
{
    const quelta::LastErrorKeeper keeper;
    if (reason == DLL_PROCESS_ATTACH) quelta::tokenState().moduleHandle = module;
    return TRUE;
}
