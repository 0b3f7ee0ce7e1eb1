#pragma once

#include <openssl/ssl.h>

#include <chrono>

#include "reply.h"
#include "stop_pipe.h"

namespace localservice {

// Serves one accepted, non-blocking socket to its end: TLS handshake, one request, the handler's
// reply, its ending. A connection that fails, stays silent for 30 s, sends more than
// MAX_REQUEST_LENGTH or is stopped is closed without a reply. Leaves the OpenSSL error queue empty.
void serveConnection(SSL_CTX* context, const FileDescriptor& socket, const StopPipe& stopPipe,
                     const Handler& handler);

// Waits until the client of one accepted, non-blocking socket begins the handshake, answers nothing
// for `time` and ends the connection. Being stopped ends it at once.
void stallConnection(const FileDescriptor& socket, const StopPipe& stopPipe,
                     std::chrono::milliseconds time, Ending ending);

}  // namespace localservice
