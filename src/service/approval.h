#pragma once

#include <string>

#include "service/signing_service.h"
#include "service/tls_settings.h"

namespace brivasign {

// How the wait for the user's approval ends.
enum class Decision {
  ACCEPTED,
  REFUSED,
  UNDECIDED,  // nobody decided in time
  FAILED,     // no service, or a reply that cannot be used
  MISTYPED,   // a reply with a member of the wrong type
};

struct SignatureOutcome {
  Decision decision;
  std::string signature;  // base64, when accepted
};

// Asks the service of the selected environment for the signature `order`, in the name of this
// machine, and waits until the user has decided, nobody has for some 38 seconds, or the service
// fails. Environment and machine identifier are read anew. Logs all but a refusal and a reply that
// is mistyped.
SignatureOutcome requestApproval(const SignatureOrder& order, HostNameCheck hostNameCheck);

}  // namespace brivasign
