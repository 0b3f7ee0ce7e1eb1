#pragma once

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

namespace diagnosis {

// Owns the descriptor of a socket; -1: none.
class Socket {
 public:
  explicit Socket(int descriptor = -1) : descriptor_(descriptor) {}
  Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Socket() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  [[nodiscard]] int get() const { return descriptor_; }

 private:
  int descriptor_;
};

// Where a stream socket can connect to.
struct Address {
  sockaddr_storage bytes;
  socklen_t length;
};

// What a host name stands for, in the order in which the module tries it.
struct Resolution {
  std::vector<Address> addresses;
  std::string reason;  // why there are none
};

// Resolves `host` and `port`, both zero-terminated.
Resolution resolve(const char* host, const char* port);

// Returns the numeric form of `address`, without the port.
std::string addressText(const Address& address);

struct Connection {
  Socket socket;
  std::string reason{};  // why there is none
};

// Connects to `address`.
Connection connectTo(const Address& address);

}  // namespace diagnosis
