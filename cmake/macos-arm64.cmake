# Toolchain: builds on Linux for macOS 11 and later on 64-bit Arm, with what scripts/cross-macos has
# put into build/macos-dependencies.

get_filename_component(MACOS_DEPENDENCIES "${CMAKE_CURRENT_LIST_DIR}/../build/macos-dependencies"
                       ABSOLUTE)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
# It brings the headers of macOS and the list of what libSystem exports.
set(CMAKE_CXX_COMPILER "${MACOS_DEPENDENCIES}/compiler/zig" c++)
set(CMAKE_CXX_COMPILER_TARGET aarch64-macos.11.0)
set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19)
# There is nothing left to strip, and it would leave the constant data writable.
set(CMAKE_STRIP "")
# What is only tried needs no linking.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX "${CMAKE_CURRENT_LIST_DIR}/macos/linker.cmake")

# None of this machine's own headers and libraries fits.
set(CMAKE_FIND_ROOT_PATH "${MACOS_DEPENDENCIES}/headers")
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
