#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The two exchanges with the signing service. Each opens a connection of its own, blocks until the
// service has closed it, and keeps nothing. `host`, `port` and `machineId` are zero-terminated.

namespace brivasign {

// Asks the service at `host` and `port` for a signature over `dataLength` bytes at `data` with the
// key of `signCertificateId`, padded as `signPssParams` says, and shows the desktop notification.
// Returns the number under which the service files the request, or 0 on any failure, which is
// logged.
std::int32_t sendSignatureRequest(const unsigned char* data, std::size_t dataLength,
                                  const char* host, const char* port, const char* machineId);

// Asks for the state of the request `requestNumber`. Returns the body of the reply, empty when the
// exchange failed, which is logged.
std::string querySignatureStatus(std::int32_t requestNumber, const char* host, const char* port,
                                 const char* machineId);

}  // namespace brivasign
