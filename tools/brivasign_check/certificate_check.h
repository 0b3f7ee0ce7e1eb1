#pragma once

#include "brivasign_check/finding.h"

namespace diagnosis {

// Looks at every entry of the certificate cache, in the order of the names.
Findings checkCertificates();

}  // namespace diagnosis
