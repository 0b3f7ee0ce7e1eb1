#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "pkcs11.h"

// The requests as they go over the wire, as functions from values to text. Values are inserted as
// they are; nothing is escaped or cut.

namespace brivasign {

// How the service shall pad; zero-terminated texts.
struct PssNames {
  const char* hash;     // "algoritmoHash"
  const char* padding;  // "tipoPadding"
};

// Returns the service's names for `parameters`, with which `dataLength` bytes are signed.
PssNames pssNames(const CK_RSA_PKCS_PSS_PARAMS& parameters, std::size_t dataLength);

// What a signature request carries; zero-terminated texts.
struct SignatureRequest {
  std::int32_t certificateId;
  std::string challenge;       // base64 of the data to be signed
  std::int32_t processId;      // of the host process
  const char* executableName;  // last path component
  const PssNames* pss;         // null: PKCS#1 v1.5
};

// Returns the whole HTTP request that files `request` with the service `host` in the name of
// `machineId`.
std::string formatSignatureRequest(const SignatureRequest& request, const char* host,
                                   const char* machineId);

// Returns the whole HTTP request that asks for the state of the request `requestNumber`.
std::string formatStatusQuery(std::int32_t requestNumber, const char* host, const char* machineId);

}  // namespace brivasign
