# SPDX-License-Identifier: MIT
#
# Zorbe::PlatformConformance: sources that are compiled into the program that links it. The program
# defines makeLoop() of <conformance/loop.h>, and links the platform that it tests.

if(TARGET Zorbe::PlatformConformance)
  return()
endif()
include(CMakeFindDependencyMacro)
find_dependency(GTest)
file(GLOB suite ${ZORBE_SUITEDIR}/conformance/*_test.cpp)
add_library(Zorbe::PlatformConformance INTERFACE IMPORTED)
target_sources(Zorbe::PlatformConformance INTERFACE ${suite})
target_include_directories(Zorbe::PlatformConformance INTERFACE ${ZORBE_SUITEDIR}
  $<TARGET_PROPERTY:Zorbe::Zorbe,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(Zorbe::PlatformConformance INTERFACE GTest::gtest GTest::gtest_main)
target_compile_features(Zorbe::PlatformConformance INTERFACE cxx_std_17)
