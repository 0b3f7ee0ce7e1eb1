#pragma once

#include "openssl_handles.h"
#include "service/tls_settings.h"

namespace brivasign {

// Opens a TLS 1.2 connection to `host` (name) at `port` (decimal), both zero-terminated, and
// verifies the server's certificate against the compiled-in trust anchors alone, and its names as
// `hostNameCheck` says. Blocks without a time-out and sets the process to ignore SIGPIPE.
// Returns whether the connection stands. On success the caller owns `outContext` and `outChannel`
// and releases the channel first. A failure is logged and leaves both outputs untouched.
bool openSecureChannel(SslContextPtr& outContext, BioPtr& outChannel, const char* host,
                       const char* port, HostNameCheck hostNameCheck);

}  // namespace brivasign
