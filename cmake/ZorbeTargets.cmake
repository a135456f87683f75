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

# Resolves ZORBE_BUILD_PYTHON. The extension is loaded by this machine's interpreter: AUTO leaves it
# out where what it is linked with is instrumented so that this one cannot load it. g++'s address
# sanitizer can be loaded first. The system's interpreter is the one that scripts/setup installs
# pytest for.
function(zorbe_resolve_python)
  if(NOT ZORBE_BUILD_PYTHON)
    return()
  endif()
  find_program(Python3_EXECUTABLE python3 PATHS /usr/bin NO_DEFAULT_PATH)
  if(NOT ZORBE_BUILD_PYTHON STREQUAL "AUTO")
    return()
  endif()
  set(ZORBE_BUILD_PYTHON OFF PARENT_SCOPE)
  if(CMAKE_CROSSCOMPILING OR ZORBE_COVERAGE OR CMAKE_CXX_FLAGS MATCHES "-fsanitize=(thread|fuzzer)")
    return()
  endif()
  find_package(Python3 3.11 QUIET COMPONENTS Interpreter Development.Module)
  if(Python3_FOUND)
    set(ZORBE_BUILD_PYTHON ON PARENT_SCOPE)
  else()
    message(NOTICE "Zorbe: without the Python package, since Python's headers are not installed "
      "(scripts/setup installs them)")
  endif()
endfunction()

option(ZORBE_WERROR "Treat the project's own warnings as errors (our presets turn it on)" OFF)

function(zorbe_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(ZORBE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Binds all symbols when the library is loaded and calls without a PLT. A round of the kick channel
# then touches fewer pages, each of which a reader that is woken among many may find evicted from
# the cache: calls read the global offset table, whose page also holds the tables of virtual
# functions.
function(zorbe_eager_binding target)
  target_compile_options(${target} PRIVATE -fno-plt)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    target_link_options(${target} PRIVATE "LINKER:-z,now")
  endif()
endfunction()

option(ZORBE_HARDENED "Harden the libraries and the command (preset release)" OFF)
if(ZORBE_HARDENED)
  include(CheckCXXCompilerFlag)
  include(CheckCXXSourceCompiles)
  check_cxx_compiler_flag(-fstack-protector-strong ZORBE_HAS_STACK_PROTECTOR)
  # Of x86 only.
  check_cxx_compiler_flag(-fcf-protection ZORBE_HAS_CF_PROTECTION)
  # A C library or compiler that knows only level 2 warns of level 3.
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstdlib>\nint main() {}" ZORBE_HAS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
endif()

# Stack protector, checked calls of the C library, control-flow protection and full RELRO.
function(zorbe_hardened target)
  if(NOT ZORBE_HARDENED)
    return()
  endif()
  if(ZORBE_HAS_STACK_PROTECTOR)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
  endif()
  if(ZORBE_HAS_CF_PROTECTION)
    target_compile_options(${target} PRIVATE -fcf-protection)
  endif()
  set(level 2)
  if(ZORBE_HAS_FORTIFY_3)
    set(level 3)
  endif()
  # It needs a compiler that optimises.
  target_compile_options(${target} PRIVATE
    $<$<NOT:$<CONFIG:,Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}>)
  target_link_options(${target} PRIVATE "LINKER:-z,relro" "LINKER:-z,now")
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
