#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "event_log.h"
#include "reply.h"

namespace localservice {

// What goes wrong on purpose.
struct Faults {
  std::vector<std::filesystem::path> replyFiles;  // the exact replies, one per request
  std::optional<std::chrono::milliseconds> byteDelay;
  std::size_t closeAfter = SIZE_MAX;
  std::optional<std::chrono::milliseconds> stall;  // the listener's, not of a reply
  Ending ending = Ending::CLOSE_NOTIFY;
};

// Returns a handler that answers as `handler` does, or with the reply files in turn, the last one
// again and again, and spoils the delivery of every reply. `log` is told of each reply file
// sent. Throws std::runtime_error when a reply file cannot be read.
Handler withFaults(Handler handler, const Faults& faults, EventLog& log);

}  // namespace localservice
