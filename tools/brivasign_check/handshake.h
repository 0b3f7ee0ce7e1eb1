#pragma once

#include "brivasign_check/finding.h"

namespace diagnosis {

// Makes the module's TLS handshake with `host` (zero-terminated) over the connected `socket`,
// closes the TLS connection, and tells how the server's certificate was judged. Sends no request.
// Waits for the server without a limit.
Finding checkHandshake(int socket, const char* host);

}  // namespace diagnosis
