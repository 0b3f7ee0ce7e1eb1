#pragma once

#include <cstdint>

#include "brivasign_check/finding.h"
#include "service/service_environment.h"

namespace diagnosis {

// Tells which environment `choice` selects, and why.
Finding checkEnvironment(const brivasign::EnvironmentChoice& choice);

// Tells whether the machine identifier of environment `index` is there, without showing it.
Finding checkMachineId(std::int32_t index);

}  // namespace diagnosis
