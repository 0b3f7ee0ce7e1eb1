#include "brivasign_check/connection.h"

#include <cerrno>
#include <cstring>
#include <system_error>

namespace diagnosis {

Resolution resolve(const char* host, const char* port) {
  // As the module's TLS library asks.
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_ADDRCONFIG;
  addrinfo* list = nullptr;
  Resolution resolution;
  if (const int error = getaddrinfo(host, port, &hints, &list); error != 0) {
    resolution.reason = gai_strerror(error);
    return resolution;
  }
  for (const addrinfo* item = list; item != nullptr; item = item->ai_next) {
    Address& address = resolution.addresses.emplace_back();
    std::memcpy(&address.bytes, item->ai_addr, item->ai_addrlen);
    address.length = item->ai_addrlen;
  }
  freeaddrinfo(list);
  return resolution;
}

std::string addressText(const Address& address) {
  char text[NI_MAXHOST] = {};
  const int error = getnameinfo(reinterpret_cast<const sockaddr*>(&address.bytes), address.length,
                                text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return error == 0 ? text : "?";
}

Connection connectTo(const Address& address) {
  Connection connection = {Socket(socket(address.bytes.ss_family, SOCK_STREAM, 0))};
  if (connection.socket.get() < 0 ||
      connect(connection.socket.get(), reinterpret_cast<const sockaddr*>(&address.bytes),
              address.length) != 0) {
    return {Socket(), std::system_category().message(errno)};
  }
  return connection;
}

}  // namespace diagnosis
