#pragma once

#include "brivasign_check/finding.h"
#include "brivasign_check/time_limit.h"

namespace diagnosis {

// Looks at every entry of the certificate cache, in the order of the names.
Findings checkCertificates(const TimeLimit& limit);

}  // namespace diagnosis
