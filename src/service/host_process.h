#pragma once

#include <cstddef>

namespace brivasign {

constexpr std::size_t EXECUTABLE_PATH_SIZE = 1024;  // bytes, terminator included

// Writes the full path of the executable that the module is loaded into, zero-terminated. A path
// that does not fit, or is not known, leaves an empty text. One source per platform.
void readExecutablePath(char (&path)[EXECUTABLE_PATH_SIZE]);

}  // namespace brivasign
