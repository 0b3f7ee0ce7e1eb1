# Has LLVM's linker make shared libraries, without the compiler in between: the compiler's own
# linker knows no export list. The toolchain file has CMake read this after its own rules.

# The compiler refuses what CMake adds to this by default.
set(CMAKE_CXX_VERBOSE_FLAG -v)
set(CMAKE_CXX_LINKER_WRAPPER_FLAG "")
# -S: where each object file lay is not part of the product.
string(JOIN " " CMAKE_CXX_CREATE_SHARED_LIBRARY
  "lld -flavor darwin -dylib -arch arm64 -platform_version macos 11.0 11.0"
  "-headerpad_max_install_names -S <LINK_FLAGS>"
  "<SONAME_FLAG> <TARGET_INSTALLNAME_DIR><TARGET_SONAME> -o <TARGET> <OBJECTS> <LINK_LIBRARIES>"
  "\"${CMAKE_CURRENT_LIST_DIR}/libc++.tbd\""
  "\"${MACOS_DEPENDENCIES}/compiler/lib/libc/darwin/libSystem.11.tbd\"")
