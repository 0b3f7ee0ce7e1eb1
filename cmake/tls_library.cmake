# Finds the TLS library that becomes part of the product and makes it the targets OpenSSL::SSL and
# OpenSSL::Crypto: the one of scripts/tls-library once it has been built, unless OPENSSL_ROOT_DIR
# names the folder of another. Before, it is the system's, which is not what is tested. Sets
# PLATFORM, the name of what the products are for.

if(APPLE)
  set(PLATFORM macos-arm64)
else()
  string(TOLOWER "${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}" PLATFORM)
endif()
set(own "${CMAKE_CURRENT_LIST_DIR}/../build/tls-library/${PLATFORM}")
cmake_path(NORMAL_PATH own)
if(NOT OPENSSL_ROOT_DIR AND EXISTS "${own}/origin")
  foreach(name SSL Crypto)
    string(TOLOWER "${name}" file)
    add_library(OpenSSL::${name} STATIC IMPORTED)
    set_target_properties(OpenSSL::${name} PROPERTIES
      IMPORTED_LOCATION "${own}/lib/lib${file}.a"
      INTERFACE_INCLUDE_DIRECTORIES "${own}/include")
  endforeach()
  set_target_properties(OpenSSL::SSL PROPERTIES INTERFACE_LINK_LIBRARIES OpenSSL::Crypto)
  if(NOT APPLE)
    set_target_properties(OpenSSL::Crypto PROPERTIES INTERFACE_LINK_LIBRARIES "-pthread")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${own}/origin")
else()
  set(OPENSSL_USE_STATIC_LIBS ON)
  find_package(OpenSSL REQUIRED)
  if(NOT OPENSSL_ROOT_DIR)
    message(WARNING "The product gets the system's OpenSSL ${OPENSSL_VERSION}. "
                    "After scripts/tls-library it gets the one that is tested.")
  endif()
endif()
