# Link options of every binary.
if(MINGW)
  add_link_options(-Wl,--dynamicbase,--high-entropy-va,--nxcompat)
  return()
elseif(NOT MSVC)
  return()
endif()

add_link_options(/CETCOMPAT /DYNAMICBASE /HIGHENTROPYVA /DEBUG /OPT:REF /OPT:ICF)

# The C++ runtime is linked statically, so no DLL of the compiler is needed. The universal C runtime, a part of Windows, stays a
# DLL: the device library's results come from its heap and are freed there.
if(CMAKE_CXX_COMPILER_ID STREQUAL "MSVC")
  set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreaded)
  add_compile_options(/guard:cf)
  add_link_options(/guard:cf)
  add_link_options(/NODEFAULTLIB:libucrt.lib /DEFAULTLIB:ucrt.lib)
else()
  # Another compiler is used only to check the sources; its runtime lacks what the options above need. An older msvcp140.dll in
  # the host's process does not know a mutex that was made at compile time, and would crash at the first lock.
  set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreadedDLL)
  add_compile_definitions(_DISABLE_CONSTEXPR_MUTEX_CONSTRUCTOR)
endif()
