#include "brivasign_check/connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace diagnosis {

Addresses resolve(const char* host, const char* port, std::string& reason) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int error = getaddrinfo(host, port, &hints, &list);
  if (error == 0) return Addresses(list);
  reason = gai_strerror(error);
  return nullptr;
}

std::string addressText(const addrinfo& address) {
  char text[NI_MAXHOST] = {};
  const int error = getnameinfo(address.ai_addr, address.ai_addrlen, text, sizeof text, nullptr, 0,
                                NI_NUMERICHOST);
  return error == 0 ? text : "?";
}

Socket connectTo(const addrinfo& address, std::string& reason) {
  Socket connection(socket(address.ai_family, address.ai_socktype, address.ai_protocol));
  int error = 0;
  if (connection.get() < 0 || fcntl(connection.get(), F_SETFL, O_NONBLOCK) != 0) {
    error = errno;
  } else if (connect(connection.get(), address.ai_addr, address.ai_addrlen) != 0) {
    error = errno;
    if (error == EINPROGRESS) {
      socklen_t size = sizeof error;
      if (!waitFor(connection.get(), POLLOUT, std::chrono::steady_clock::now() + STEP_TIME)) {
        error = ETIMEDOUT;
      } else if (getsockopt(connection.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        error = errno;
      }
    }
  }
  if (error == 0) return connection;
  reason = std::system_category().message(error);
  return Socket();
}

bool waitFor(int socket, short events, Deadline deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd item = {socket, events, 0};
    const int count = poll(&item, 1, std::max(0, static_cast<int>(left.count())));
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

}  // namespace diagnosis
