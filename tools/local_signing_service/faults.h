#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <vector>

#include "reply.h"

namespace localservice {

// What goes wrong on purpose.
struct Faults {
  std::vector<std::filesystem::path> replyFiles;  // the exact replies, one per request
  std::chrono::milliseconds byteDelay{0};
  std::size_t closeAfter = SIZE_MAX;
};

// Returns a handler that answers as `handler` does, or with the reply files in turn, the last one
// again and again, and spoils the delivery of every reply. `log` gets one line per reply file
// sent. Throws std::runtime_error when a reply file cannot be read.
Handler withFaults(Handler handler, const Faults& faults, std::ostream& log);

}  // namespace localservice
