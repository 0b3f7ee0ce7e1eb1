#pragma once

#include <cstdio>
#include <cstdlib>

namespace brivasign {

// Tells on standard error which `condition` failed, and where, and ends the process.
[[noreturn]] inline void endProcess(const char* file, int line, const char* condition) {
  std::fprintf(stderr, "pkcs11-brivasign: %s:%d: assertion failed: %s\n", file, line, condition);
  std::abort();
}

}  // namespace brivasign
