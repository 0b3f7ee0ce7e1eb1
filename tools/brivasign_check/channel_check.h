#pragma once

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"
#include "service/service_environment.h"

namespace diagnosis {

// Looks at the way to the service of `environment`, step by step as far as it goes: name
// resolution, connection, secure channel. Sends no request.
Findings checkChannel(const brivasign::ServiceEnvironment& environment, const TimeLimit& limit);

}  // namespace diagnosis
