#pragma once

#include <string>

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"

namespace diagnosis {

// Returns what a report says of the examination itself: when, where, by whom, with which limit for
// each step. `user` is the user's name.
Facts runFacts(const std::string& user, const TimeLimit& limit);

}  // namespace diagnosis
