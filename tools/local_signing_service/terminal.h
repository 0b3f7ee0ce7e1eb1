#pragma once

#include "signing_service.h"

namespace localservice {

// Reads from standard input, on a thread that lasts as long as the process, what a person answers
// to the questions of `service`: "y" or "n", each on a line. At its end everything is refused.
void decideOnTerminal(SigningService& service);

}  // namespace localservice
