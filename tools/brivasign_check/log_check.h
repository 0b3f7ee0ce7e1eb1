#pragma once

#include <string>
#include <vector>

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"

namespace diagnosis {

struct LogCheck {
  Finding finding;
  std::vector<std::string> lines;  // the last, oldest first; identifiers masked, long lines cut
};

// Looks at the module's log.
LogCheck checkLog(const TimeLimit& limit);

// Looks at the file by which the module tells the companion application of an update.
Finding checkUpdateFlag(const TimeLimit& limit);

}  // namespace diagnosis
