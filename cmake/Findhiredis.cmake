# SPDX-License-Identifier: MIT
#
# The client library of Redis servers, which Debian delivers without files for CMake:
# target hiredis::hiredis; and hiredis::ssl, where it has TLS, and OpenSSL's headers are installed.

find_path(hiredis_INCLUDE_DIR hiredis/async.h)
find_library(hiredis_LIBRARY hiredis)
find_path(hiredis_SSL_INCLUDE_DIR hiredis/hiredis_ssl.h)
find_library(hiredis_SSL_LIBRARY hiredis_ssl)
mark_as_advanced(hiredis_INCLUDE_DIR hiredis_LIBRARY hiredis_SSL_INCLUDE_DIR hiredis_SSL_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(hiredis REQUIRED_VARS hiredis_LIBRARY hiredis_INCLUDE_DIR)

if(hiredis_FOUND AND NOT TARGET hiredis::hiredis)
  add_library(hiredis::hiredis UNKNOWN IMPORTED)
  set_target_properties(hiredis::hiredis PROPERTIES
    IMPORTED_LOCATION ${hiredis_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${hiredis_INCLUDE_DIR})
endif()

if(hiredis_FOUND AND hiredis_SSL_LIBRARY AND hiredis_SSL_INCLUDE_DIR)
  find_package(OpenSSL QUIET)
  if(OPENSSL_FOUND AND NOT TARGET hiredis::ssl)
    add_library(hiredis::ssl UNKNOWN IMPORTED)
    set_target_properties(hiredis::ssl PROPERTIES
      IMPORTED_LOCATION ${hiredis_SSL_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${hiredis_SSL_INCLUDE_DIR}
      INTERFACE_LINK_LIBRARIES "hiredis::hiredis;OpenSSL::SSL;OpenSSL::Crypto")
  endif()
endif()
