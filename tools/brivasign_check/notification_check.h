#pragma once

#include "brivasign_check/finding.h"

namespace diagnosis {

// Looks for the program that shows the desktop notification.
Finding checkNotification();

}  // namespace diagnosis
