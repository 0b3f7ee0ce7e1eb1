# Has LLVM's linker make libraries and programs, without the compiler in between: the compiler's own
# linker knows no export list, and stumbles over constants of the TLS library's assembler. The
# toolchain file has CMake read this after its own rules.

# The compiler refuses what CMake adds to these by default.
set(CMAKE_CXX_VERBOSE_FLAG -v)
set(CMAKE_CXX_LINKER_WRAPPER_FLAG "")
# -S: where each object file lay is not part of the product. -x: neither are its inner names.
set(linker "ld64.lld-19 -arch arm64 -platform_version macos 11.0 11.0 -S -x <LINK_FLAGS>")
set(system "\"${MACOS_DEPENDENCIES}/compiler/lib/libc/darwin/libSystem.11.tbd\"")
# A library shares the C++ library with its host, as everything on a Mac does, but for a few parts that
# stand alone. For a program the compiler's own is fine, and spares a list of all that a program may
# need of the system's.
string(JOIN " " CMAKE_CXX_CREATE_SHARED_LIBRARY
  "${linker} -dylib -headerpad_max_install_names"
  "<SONAME_FLAG> <TARGET_INSTALLNAME_DIR><TARGET_SONAME> -o <TARGET> <OBJECTS> <LINK_LIBRARIES>"
  "\"${CMAKE_CURRENT_LIST_DIR}/libc++.tbd\" \"${MACOS_DEPENDENCIES}/runtime/libc++parts.a\" ${system}")
string(JOIN " " CMAKE_CXX_LINK_EXECUTABLE
  "${linker} -dead_strip -o <TARGET> <OBJECTS> <LINK_LIBRARIES>"
  "\"${MACOS_DEPENDENCIES}/runtime/libc++.a\" \"${MACOS_DEPENDENCIES}/runtime/libc++abi.a\""
  "${system}")
