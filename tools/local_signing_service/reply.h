#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace localservice {

// How a connection ends: with TLS close_notify, by TCP alone, or by a TCP reset.
enum class Ending { CLOSE_NOTIFY, CLOSE, RESET };

// What a connection gets back, and how.
struct Reply {
  std::string bytes;                  // the exact bytes to send, status line included
  std::size_t closeAfter = SIZE_MAX;  // end the connection after so many bytes
  // If set: one TLS record per byte, this pause before each.
  std::optional<std::chrono::milliseconds> byteDelay{};
  Ending ending = Ending::CLOSE_NOTIFY;
};

// Answers the exact bytes of one request, those behind its body included, of the connection with
// this number.
using Handler = std::function<Reply(const std::string& request, std::size_t connection)>;

}  // namespace localservice
