#pragma once

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"

namespace diagnosis {

// Looks for the program that shows the desktop notification.
Finding checkNotification(const TimeLimit& limit);

}  // namespace diagnosis
