#pragma once

#include <string>
#include <vector>

#include "brivasign_check/finding.h"

namespace diagnosis {

// Looks at the module's log.
Finding checkLog();

// Returns the last lines of the log, oldest first; none when it cannot be read. Machine identifiers
// are masked and long lines cut.
std::vector<std::string> lastLogLines();

}  // namespace diagnosis
