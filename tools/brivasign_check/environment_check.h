#pragma once

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"
#include "service/service_environment.h"

namespace diagnosis {

struct EnvironmentCheck {
  std::int32_t index = brivasign::ENV_PRODUCTION;
  Finding finding;
};

// Tells which environment is selected, and why. With `hasFolder` false nothing can be read.
EnvironmentCheck checkEnvironment(bool hasFolder, const TimeLimit& limit);

// Tells whether the machine identifier of `environment` is there, without showing it, and whether
// what stands for those of the others can be read without harm.
Findings checkMachineIds(const EnvironmentCheck& environment, const TimeLimit& limit);

}  // namespace diagnosis
