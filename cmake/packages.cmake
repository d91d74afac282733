# Third-party libraries. On Windows a package manager provides them, and CMake finds them. On Debian their headers are in
# /usr/include, beside headers that a cross compiler must not see, so a link in the build tree shows only the needed folder.
# GoogleTest is built from Debian's source package, because Debian's built libraries are for the build machine.

function(quelta_find_package package)
  find_package(${package} CONFIG QUIET)
  if(NOT ${package}_FOUND)
    message(FATAL_ERROR "${package} is missing: run \"vcpkg install nlohmann-json cli11 boost-multiprecision gtest "
      "--triplet x64-windows-static\" and configure with --fresh -DVCPKG_TARGET_TRIPLET=x64-windows-static "
      "-DCMAKE_TOOLCHAIN_FILE=VCPKG/scripts/buildsystems/vcpkg.cmake, or leave out what needs it with the preset windows-msvc")
  endif()
endfunction()

# Defines the interface target `target` for the package whose main header is <folder/header>. A fifth argument names the package's
# own target if that is not PACKAGE::PACKAGE.
function(quelta_header_only target package folder header)
  if(TARGET ${target})
    return()
  endif()
  add_library(${target} INTERFACE)
  if(NOT CMAKE_CROSSCOMPILING)
    quelta_find_package(${package})
    set(candidates ${ARGN} ${package}::${package})
    list(GET candidates 0 imported)
    target_link_libraries(${target} INTERFACE ${imported})
    return()
  endif()
  find_path(${target}_ROOT NAMES ${folder}/${header} NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ${target}_ROOT)
    message(FATAL_ERROR "${folder}/${header} is missing: run \"apt-get install libboost-dev libcli11-dev nlohmann-json3-dev\"")
  endif()
  set(links ${CMAKE_BINARY_DIR}/header_only/${target})
  file(MAKE_DIRECTORY ${links})
  file(CREATE_LINK ${${target}_ROOT}/${folder} ${links}/${folder} SYMBOLIC COPY_ON_ERROR)
  target_include_directories(${target} SYSTEM INTERFACE ${links})
endfunction()

# Defines the targets gtest and gmock.
function(quelta_googletest)
  if(NOT CMAKE_CROSSCOMPILING)
    quelta_find_package(GTest)
    foreach(library gtest gmock)
      add_library(${library} INTERFACE)
      target_link_libraries(${library} INTERFACE GTest::${library})
    endforeach()
    return()
  endif()
  set(INSTALL_GTEST OFF)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(library gtest gmock)
    # The sources use names that mingw's headers hide from strict C++.
    set_target_properties(${library} PROPERTIES CXX_EXTENSIONS ON)
  endforeach()
endfunction()
