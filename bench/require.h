#pragma once

#include <stdexcept>

namespace bench {

// Ends the run with the sentence `what` unless `condition` holds: a figure of work that was not
// done would mislead.
inline void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace bench
