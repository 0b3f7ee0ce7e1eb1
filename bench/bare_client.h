#pragma once

#include <string>
#include <vector>

namespace bench {

// A client that opens the module's connections to the local service and exchanges the module's
// bytes, and does nothing else.
class [[gnu::visibility("default")]] BareClient {
 public:
  // Trusts the authorities in `anchors`, each in PEM. Each of `requests` is one exchange.
  BareClient(std::vector<std::string> anchors, std::vector<std::string> requests);

  // Makes all exchanges with the service at `port` (decimal), one connection after another.
  void exchange(const char* port) const;

 private:
  std::vector<std::string> anchors_;
  std::vector<std::string> requests_;
};

}  // namespace bench
