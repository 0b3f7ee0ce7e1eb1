#pragma once

#include "event_log.h"
#include "signing_service.h"

namespace localservice {

// Reads from standard input, on a thread that lasts as long as the process, what a person answers
// to the questions of `service`, which `log` has asked: "y" or "n", each on a line. At the end of
// the input everything is refused.
void decideOnTerminal(SigningService& service, EventLog& log);

}  // namespace localservice
