#include <mach-o/dyld.h>

#include <cstdint>

#include "service/host_process.h"

namespace brivasign {

void readExecutablePath(char (&path)[EXECUTABLE_PATH_SIZE]) {
  std::uint32_t size = sizeof path;
  if (_NSGetExecutablePath(path, &size) != 0) path[0] = '\0';
}

}  // namespace brivasign
