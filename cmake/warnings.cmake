# What every target of this project is compiled with; nothing of it reaches GoogleTest or other people's headers.
function(quelta_compile target)
  if(MSVC)
    # Exceptions of C++ alone, but out of functions of C linkage too: the device library's may throw.
    target_compile_options(${target} PRIVATE /W4 /permissive- /utf-8 /EHs /Z7 $<$<BOOL:${QUELTA_WERROR}>:/WX>)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${QUELTA_WERROR}>:-Werror>)
    # It doubles what a compilation costs, and the tests' own code is not what is to be proved.
    if(QUELTA_TRAP_UB AND NOT CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/tests")
      target_compile_options(${target} PRIVATE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    endif()
  endif()
  if(WIN32)
    target_compile_definitions(${target} PRIVATE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
  endif()
endfunction()

# Windows' and the library's headers are most of what a compilation reads. The other compiler reads each source by itself, and so
# finds what a source forgets to include.
function(quelta_precompile target)
  if(MINGW)
    target_precompile_headers(${target} PRIVATE <windows.h> <algorithm> <array> <memory> <string> <vector> ${ARGN})
  endif()
endfunction()
