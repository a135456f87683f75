# SPDX-License-Identifier: MIT
#
# What every target of the project has in common.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The files of a 32-bit system have 64-bit inode numbers, sizes and times, too: without these,
# stat(2) and readdir(3) refuse what they cannot represent. No public header has such a type.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# Resolves an option that is AUTO: ON if all packages that `what` needs are installed. Otherwise
# OFF, and the missing ones are printed.
function(zorbe_resolve_auto option what)
  if(NOT ${option} STREQUAL "AUTO")
    return()
  endif()
  set(missing)
  foreach(package IN LISTS ARGN)
    find_package(${package} QUIET)
    if(NOT ${package}_FOUND)
      list(APPEND missing ${package})
    endif()
  endforeach()
  if(missing)
    list(JOIN missing ", " missing)
    message(NOTICE "Zorbe: without ${what}, since these are not installed: ${missing} "
      "(scripts/setup installs them)")
    set(${option} OFF PARENT_SCOPE)
  else()
    set(${option} ON PARENT_SCOPE)
  endif()
endfunction()

option(ZORBE_WERROR "Treat the project's own warnings as errors (our presets turn it on)" OFF)

function(zorbe_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(ZORBE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Every page that a round of the kick channel touches is one that a reader, woken among many,
# has to find again: calls go straight through the table of addresses, which is filled when the
# library is loaded and shares its page with the tables of virtual functions.
function(zorbe_few_pages target)
  target_compile_options(${target} PRIVATE -fno-plt)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    target_link_options(${target} PRIVATE "LINKER:-z,now")
  endif()
endfunction()

# Exports from the shared library `target` only what the version script `map` names.
function(zorbe_version_script target map)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()

option(ZORBE_COVERAGE "Count what is run of the libraries (preset coverage)" OFF)
if(ZORBE_COVERAGE)
  add_link_options(--coverage)
endif()

# Nothing is optimised where it is counted, so that each line has a count of its own. The
# counters are atomic for the tests that have threads.
function(zorbe_coverage target)
  if(ZORBE_COVERAGE)
    target_compile_options(${target} PRIVATE
      --coverage -O0 -fprofile-abs-path -fprofile-update=atomic)
  endif()
endfunction()
