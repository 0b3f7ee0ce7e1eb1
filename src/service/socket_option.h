#pragma once

#include <sys/socket.h>

namespace brivasign {

// Sets an option of `socket` to a whole number. What the system does not know stays as it was.
inline void setSocketOption(int socket, int level, int option, int value) {
  setsockopt(socket, level, option, &value, sizeof value);
}

}  // namespace brivasign
