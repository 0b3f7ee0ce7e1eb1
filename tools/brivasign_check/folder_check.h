#pragma once

#include <string>

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"

namespace diagnosis {

// Returns the name of the user of this process; the number when the system does not tell in time.
std::string currentUser(const TimeLimit& limit);

// Tells who examines: `user` is the name.
Finding checkUser(const std::string& user);

// Looks at HOME and, if it is usable, at the product folder. Nothing that lies in the folder can be
// looked at when any finding is wrong.
Findings checkFolder(const TimeLimit& limit);

}  // namespace diagnosis
