# Makes an import library from an export definition alone, so that the module links without the maker's library and without the
# stand-in. Defines the interface target `target`.
function(quelta_import_library target definition)
  if(MSVC)
    set(library ${CMAKE_CURRENT_BINARY_DIR}/${target}.lib)
    set(command ${CMAKE_AR} /nologo /machine:x64 /def:${definition} /out:${library})
  else()
    set(library ${CMAKE_CURRENT_BINARY_DIR}/lib${target}.a)
    set(command ${CMAKE_DLLTOOL} --input-def ${definition} --output-lib ${library})
  endif()
  add_custom_command(OUTPUT ${library} COMMAND ${command} DEPENDS ${definition} VERBATIM
    COMMENT "Making the import library of ${definition}")
  add_custom_target(${target}_made DEPENDS ${library})
  add_library(${target} INTERFACE)
  target_link_libraries(${target} INTERFACE ${library})
  add_dependencies(${target} ${target}_made)
endfunction()
