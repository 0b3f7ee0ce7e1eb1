#pragma once

#include "openssl_handles.h"

// How every connection to the signing service is secured: the libraries' and the diagnosis tool's.

namespace brivasign {

// Whether the server's certificate must carry the name of the host.
enum class HostNameCheck { NONE, REQUIRED };

// What the library that follows the standard asks, unless the build was told to leave it out.
inline constexpr HostNameCheck HOST_NAME_CHECK =
    ORVIX_CHECK_HOST_NAME != 0 ? HostNameCheck::REQUIRED : HostNameCheck::NONE;

// Initializes the TLS library without any configuration file. Callable more than once.
void startTlsLibrary();

// Returns a context for TLS 1.2 clients that accepts only servers for which the compiled-in trust
// anchors vouch; null on failure.
SslContextPtr newTlsContext();

// Limits what `connection` offers to the cipher suites in use. Returns whether that succeeded.
bool limitCiphers(SSL* connection);

}  // namespace brivasign
