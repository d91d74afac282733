# Compile options of every target of this project. They do not apply to GoogleTest or to third-party headers.
function(quelta_compile target)
  if(MSVC)
    # /EHs handles only C++ exceptions, but also from functions with C linkage: the device library's may throw. CMake sets /EHsc, and only
    # /EHc- undoes its c.
    target_compile_options(${target} PRIVATE /W4 /permissive- /utf-8 /EHs /EHc- /Z7 $<$<BOOL:${QUELTA_WERROR}>:/WX>)
    # The C library's getenv and sscanf are what the standard has. Microsoft's compiler warns of them.
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${QUELTA_WERROR}>:-Werror>)
    # The tests go without this option: it doubles the compile time, and their own code needs no proof.
    if(QUELTA_TRAP_UB AND NOT CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/tests")
      target_compile_options(${target} PRIVATE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    endif()
  endif()
  if(WIN32)
    target_compile_definitions(${target} PRIVATE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
  endif()
endfunction()

# Precompiles the headers of Windows and of the standard library, which are most of what a compilation reads. The other compiler
# reads each source by itself and so finds missing includes.
function(quelta_precompile target)
  if(MINGW)
    target_precompile_headers(${target} PRIVATE <windows.h> <algorithm> <array> <memory> <string> <vector> ${ARGN})
  endif()
endfunction()
