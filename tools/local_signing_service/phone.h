#pragma once

#include <string>

#include "signing_service.h"

namespace localservice {

// Serves the page on which a person decides on the requests of `service`, on threads that last as
// long as the process. Returns its address, without the random key in which nobody can decide.
// Throws std::runtime_error when there is no free port.
std::string decideOnPage(SigningService& service);

}  // namespace localservice
