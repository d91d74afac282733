#include "base/unloading.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    if (reason == DLL_PROCESS_DETACH) {
        // Goes here: only the destructors of the library's objects run from now on, and they throw nothing.
        const quelta::ExceptionReserve reserve;
    }
    return TRUE;
}
