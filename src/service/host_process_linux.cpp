#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include "service/host_process.h"
#include "service/socket_option.h"

namespace brivasign {
namespace {

constexpr int UNACKNOWLEDGED_LIMIT = 60'000;  // milliseconds

}  // namespace

void readExecutablePath(char (&path)[EXECUTABLE_PATH_SIZE]) {
  // The call cuts a long path without a word and does not terminate it: a full buffer is too small.
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < sizeof path;
  path[fits ? length : 0] = '\0';
}

void detectVanishedPeer(int socket) {
  setSocketOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  setSocketOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, PROBE_AFTER);
  setSocketOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, PROBE_INTERVAL);
  setSocketOption(socket, IPPROTO_TCP, TCP_KEEPCNT, PROBE_COUNT);
  // Questions are not asked while data that was sent is unacknowledged.
  setSocketOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, UNACKNOWLEDGED_LIMIT);
}

}  // namespace brivasign
