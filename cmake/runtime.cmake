# How every binary is linked.
if(MINGW)
  add_link_options(-Wl,--dynamicbase,--high-entropy-va,--nxcompat)
  return()
elseif(NOT MSVC)
  return()
endif()

add_link_options(/CETCOMPAT /DYNAMICBASE /HIGHENTROPYVA /DEBUG /OPT:REF /OPT:ICF)

# No DLL of the compiler's is needed beside what is built: the C++ runtime is linked in. The universal C runtime, a part of Windows,
# is not, since its heap is the one that the device library's results come from and go back to.
if(CMAKE_CXX_COMPILER_ID STREQUAL "MSVC")
  set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreaded)
  add_compile_options(/guard:cf)
  add_link_options(/guard:cf)
  add_link_options(/NODEFAULTLIB:libucrt.lib /DEFAULTLIB:ucrt.lib)
else()
  # Another front end is only used to check the sources, with a runtime that lacks what the above needs. An older msvcp140.dll in the host's process would know nothing of a mutex
  # that was made at compile time, and crash at the first lock.
  set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreadedDLL)
  add_compile_definitions(_DISABLE_CONSTEXPR_MUTEX_CONSTRUCTOR)
endif()
