#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace localservice {

// What a connection gets back, and how.
struct Reply {
  std::string bytes;                       // the exact bytes to send, status line included
  std::size_t closeAfter = SIZE_MAX;       // close the connection after so many bytes
  std::chrono::milliseconds byteDelay{0};  // >0: one TLS record per byte, this pause before each
  bool closeNotify = true;  // false: drop the TCP connection without TLS close_notify
};

// Answers the exact bytes of one request, those behind its body included.
using Handler = std::function<Reply(const std::string& request)>;

}  // namespace localservice
