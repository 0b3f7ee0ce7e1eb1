#include <mach-o/dyld.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cstdint>

#include "service/host_process.h"
#include "service/socket_option.h"

namespace brivasign {

void readExecutablePath(char (&path)[EXECUTABLE_PATH_SIZE]) {
  std::uint32_t size = sizeof path;
  if (_NSGetExecutablePath(path, &size) != 0) path[0] = '\0';
}

void detectVanishedPeer(int socket) {
  setSocketOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  setSocketOption(socket, IPPROTO_TCP, TCP_KEEPALIVE, PROBE_AFTER);
  setSocketOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, PROBE_INTERVAL);
  setSocketOption(socket, IPPROTO_TCP, TCP_KEEPCNT, PROBE_COUNT);
}

}  // namespace brivasign
