#include <windows.h>

#if defined(__GLIBCXX__)
namespace __gnu_cxx {
void __freeres();
}
#endif

namespace {

// A statically linked libstdc++ sets memory aside for exceptions when there is none left, and leaves it behind: 73 KB at every
// unloading. Only the destructors of the library's objects run after this, and they throw nothing.
void releaseExceptionMemory()
{
#if defined(__GLIBCXX__)
    __gnu_cxx::__freeres();
#endif
}

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnds)
{
    if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) releaseExceptionMemory();
    return TRUE;
}
