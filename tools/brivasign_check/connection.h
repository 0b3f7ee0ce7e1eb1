#pragma once

#include <netdb.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace diagnosis {

// A step of the channel that takes longer has failed: unlike the module, a diagnosis must end.
constexpr std::chrono::seconds STEP_TIME{10};

using Deadline = std::chrono::steady_clock::time_point;

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

struct AddressDeleter {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressDeleter>;

// Resolves `host` and `port`, both zero-terminated. On failure returns null and sets `reason`. The
// system's resolver limits the time.
Addresses resolve(const char* host, const char* port, std::string& reason);

// Returns the numeric form of `address`.
std::string addressText(const addrinfo& address);

// Connects to `address`. Returns the socket, which does not block; none on failure, which sets
// `reason`.
Socket connectTo(const addrinfo& address, std::string& reason);

// Waits until `socket` is ready for `events` (of poll). Returns whether it is before `deadline`.
bool waitFor(int socket, short events, Deadline deadline);

}  // namespace diagnosis
