# Only project() states the version. Sources link quelta_version and include "version.h"; binaries call quelta_version_resource().
configure_file(${CMAKE_CURRENT_LIST_DIR}/version.h.in ${CMAKE_BINARY_DIR}/generated/version.h @ONLY)
add_library(quelta_version INTERFACE)
target_include_directories(quelta_version INTERFACE ${CMAKE_BINARY_DIR}/generated)

# Adds the version resource, which Windows shows under "Details".
function(quelta_version_resource target description)
  get_target_property(kind ${target} TYPE)
  if(kind STREQUAL EXECUTABLE)
    set(suffix .exe)
    set(file_type VFT_APP)
  else()
    set(suffix .dll)
    set(file_type VFT_DLL)
  endif()
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()
