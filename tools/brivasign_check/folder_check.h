#pragma once

#include "brivasign_check/finding.h"

namespace diagnosis {

// Looks at HOME and, if it is usable, at the product folder. Nothing that lies in the folder can be
// looked at when any finding is wrong.
Findings checkFolder();

}  // namespace diagnosis
