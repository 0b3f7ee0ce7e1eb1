#pragma once

#include "openssl_handles.h"

// How every connection to the signing service is secured: the module's and the diagnosis tool's.

namespace brivasign {

// Initializes the TLS library without any configuration file. Callable more than once.
void startTlsLibrary();

// Returns a context for TLS 1.2 clients that accepts only servers for which the compiled-in trust
// anchors vouch; null on failure.
SslContextPtr newTlsContext();

// Limits what `connection` offers to the cipher suites in use. Returns whether that succeeded.
bool limitCiphers(SSL* connection);

}  // namespace brivasign
