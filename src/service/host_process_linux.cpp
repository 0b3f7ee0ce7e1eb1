#include <unistd.h>

#include "service/host_process.h"

namespace brivasign {

void readExecutablePath(char (&path)[EXECUTABLE_PATH_SIZE]) {
  // The call cuts a long path without a word and does not terminate it: a full buffer is too small.
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < sizeof path;
  path[fits ? length : 0] = '\0';
}

}  // namespace brivasign
