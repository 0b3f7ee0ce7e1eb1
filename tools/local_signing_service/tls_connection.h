#pragma once

#include <asio/ip/tcp.hpp>
#include <asio/ssl/context.hpp>

#include "tls_listener.h"

namespace localservice {

// Begins to serve one accepted connection with this number to its end: TLS handshake, one request,
// the handler's reply, its ending; or the stall that `options` ask for. A connection that fails or
// stays silent for 30 s is closed without a reply; of a request longer than MAX_REQUEST_LENGTH the
// handler gets a part. What the references name must last as long as the socket's context runs.
void serveConnection(asio::ip::tcp::socket socket, std::size_t number, asio::ssl::context& tls,
                     const ListenerOptions& options, const Handler& handler);

}  // namespace localservice
