# What `cmake --install` puts where, for who packages it; the same layout on every platform, and the
# same as that of tools/release/install.

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME product)

# Asked of the files: they may be older than the deployment.
if(NOT ORVIX_ALLOW_PLACEHOLDERS)
  install(CODE "foreach(product IN ITEMS ${product_files})
    file(STRINGS \"\${product}\" hosts REGEX \"^[A-Za-z0-9._-]+[.]invalid$\")
    if(hosts)
      list(JOIN hosts \", \" hosts)
      message(FATAL_ERROR \" \${product}: built for placeholder hosts, \${hosts}; \"
        \"build with -DORVIX_DEPLOYMENT_DIR=..., or with -DORVIX_ALLOW_PLACEHOLDERS=ON\")
    endif()
  endforeach()")
endif()

# CMake would make folders that others cannot enter when the umask says so.
install(CODE [[
  execute_process(
    COMMAND sh -c "umask 022 && mkdir -p \"$@\"" -
      "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/bin"
      "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/pkcs11"
      "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/doc/pkcs11-brivasign/docs"
      "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/p11-kit/modules"
    COMMAND_ERROR_IS_FATAL ANY)
]])

install(TARGETS pkcs11-brivasign pkcs11-brivasign-standard LIBRARY DESTINATION lib/pkcs11)
install(TARGETS brivasign-check RUNTIME DESTINATION bin)
file(GLOB documents CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/*.md"
     "${PROJECT_SOURCE_DIR}/docs/*.png")
install(FILES "${PROJECT_SOURCE_DIR}/README.md" DESTINATION share/doc/pkcs11-brivasign)
install(FILES ${documents} DESTINATION share/doc/pkcs11-brivasign/docs)

# p11-kit wants the full path, which only the installation knows. Its programs expect the standard.
install(CODE "file(WRITE \"${PROJECT_BINARY_DIR}/brivasign.module\"
  \"module: \${CMAKE_INSTALL_PREFIX}/lib/pkcs11/$<TARGET_FILE_NAME:pkcs11-brivasign-standard>\\n\")")
install(FILES "${PROJECT_BINARY_DIR}/brivasign.module" DESTINATION share/p11-kit/modules)
