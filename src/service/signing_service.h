#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "pkcs11.h"
#include "service/reply.h"
#include "service/tls_settings.h"

// The two exchanges with the signing service. Each opens a connection of its own, blocks until the
// service has closed it, and keeps nothing.

namespace brivasign {

// What is to be signed, with which key, and how it is padded.
struct SignatureOrder {
  const unsigned char* data;
  std::size_t dataLength;             // bytes
  std::uint64_t certificateId;        // whose key signs
  const CK_RSA_PKCS_PSS_PARAMS* pss;  // null: PKCS#1 v1.5
};

// Whom the exchanges are with, and in whose name; zero-terminated texts.
struct ServiceAccess {
  const char* host;
  const char* port;  // decimal
  const char* machineId;
  HostNameCheck hostNameCheck;
};

// Asks the service for a signature as `order` says and shows the desktop notification. Returns what
// the reply says: the number under which the service files the request, or 0 on any failure, which
// is logged.
SignatureReply sendSignatureRequest(const SignatureOrder& order, const ServiceAccess& service);

// Asks for the state of the request `requestNumber`. Returns the body of the reply, empty when the
// exchange failed, which is logged.
std::string querySignatureStatus(std::int32_t requestNumber, const ServiceAccess& service);

}  // namespace brivasign
