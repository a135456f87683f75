# SPDX-License-Identifier: MIT
#
# What `cmake --install` puts where, in three components: runtime (the shared libraries),
# development (headers, static libraries, CMake and pkg-config files) and tools (the command and the relay).
# debian/*.install makes packages of it. Nothing installed names the build tree.

include(CMakePackageConfigHelpers)

# Headers of two libraries with general names (mem/, nsutil/) do not belong into everybody's
# include path.
set(ZORBE_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/zorbe-0)
set(ZORBE_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Zorbe)

foreach(target Zorbe ZorbeStatic ZorbePlatform ZorbePlatformStatic ZorbeTable ZorbeTableStatic
    ZorbeTableCore)
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${ZORBE_INCLUDEDIR}>)
endforeach()

function(zorbe_install_libraries export)
  install(TARGETS ${ARGN} EXPORT ${export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
      NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT ${export} NAMESPACE Zorbe:: FILE ${export}.cmake
    DESTINATION ${ZORBE_CMAKEDIR} COMPONENT development)
endfunction()
zorbe_install_libraries(ZorbeTargets Zorbe ZorbeStatic)
zorbe_install_libraries(ZorbePlatformTargets ZorbePlatform ZorbePlatformStatic)
zorbe_install_libraries(ZorbeTableCoreTargets ZorbeTableCore)
zorbe_install_libraries(ZorbeTableTargets ZorbeTable ZorbeTableStatic)

install(DIRECTORY include/zorbe table/include/zorbe DESTINATION ${ZORBE_INCLUDEDIR}
  COMPONENT development)
foreach(header brask/platform.h brask/exception.h brask/linux/event_loop.h
    brask/linux/stream_debug_handler.h mem/mkpath.h nsutil/nsutil.h)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES platform/${header} DESTINATION ${ZORBE_INCLUDEDIR}/${folder}
    COMPONENT development)
endforeach()

# The conformance suite, as sources, which the owner of another platform compiles with the
# GoogleTest at hand. They include each other as conformance/... and support/...
set(ZORBE_SUITEDIR ${CMAKE_INSTALL_DATADIR}/zorbe)
install(DIRECTORY tests/unit/platform/conformance DESTINATION ${ZORBE_SUITEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "*_test.cpp" PATTERN broken EXCLUDE)
foreach(header noncopyable parallel probes watched)
  install(FILES tests/support/${header}.h DESTINATION ${ZORBE_SUITEDIR}/support
    COMPONENT development)
endforeach()

configure_package_config_file(cmake/ZorbeConfig.cmake.in ZorbeConfig.cmake
  INSTALL_DESTINATION ${ZORBE_CMAKEDIR} PATH_VARS ZORBE_SUITEDIR NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(ZorbeConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/ZorbePlatformConformanceTargets.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ZorbeConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ZorbeConfigVersion.cmake
  DESTINATION ${ZORBE_CMAKEDIR} COMPONENT development)

# From where a .pc file lies to the prefix, so that the whole tree can be moved.
cmake_path(SET pcdir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${pcdir}
  OUTPUT_VARIABLE ZORBE_PREFIX_FROM_PCDIR)
foreach(name zorbe zorbe-platform zorbe-table)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

install(FILES docs/man/libzorbe.3 docs/man/zorbe_table.3 docs/man/zorbe_table_c.3
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
install(FILES docs/man/zorbe.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT tools)

if(TARGET zorbe)
  install(TARGETS zorbe RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES docs/man/zorbe.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES tools/completion/zorbe.bash RENAME zorbe COMPONENT tools
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()
if(TARGET zorbe-relay)
  install(TARGETS zorbe-relay RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES docs/man/zorbe-relay.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES tools/completion/zorbe.bash RENAME zorbe-relay COMPONENT tools
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()
# A tree of its own may be moved; below /usr the system knows where libraries are.
foreach(program zorbe zorbe-relay)
  if(TARGET ${program} AND NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set_target_properties(${program} PROPERTIES
      INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  endif()
endforeach()
