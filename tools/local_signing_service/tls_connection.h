#pragma once

#include <openssl/ssl.h>

#include "reply.h"
#include "stop_pipe.h"

namespace localservice {

// Serves one accepted, non-blocking socket to its end: TLS handshake, one request, the handler's
// reply, orderly close. A connection that fails, stays silent for 30 s, sends more than
// MAX_REQUEST_LENGTH or is stopped is closed without a reply. Leaves the OpenSSL error queue empty.
void serveConnection(SSL_CTX* context, const FileDescriptor& socket, const StopPipe& stopPipe,
                     const Handler& handler);

}  // namespace localservice
