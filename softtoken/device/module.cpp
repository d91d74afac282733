#include "base/unloading.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    if (reason == DLL_PROCESS_DETACH) {
        // The record of this thread can go: only destructors of the library run from here on, and none throws.
        const quelta::ExceptionReserve reserve;
    }
    return TRUE;
}
