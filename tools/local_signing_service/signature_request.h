#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "signer.h"

namespace localservice {

// What an application asks for. `hash` and `padding` are only for people to read.
struct SignatureRequest {
  std::uint64_t certificate = 0;
  std::string challenge;  // the bytes to be signed
  std::string process;
  std::string application;
  std::string hash = "-";
  std::string padding = "PKCS#1 v1.5";
  std::optional<PssScheme> pss;
};

// Reads the JSON body of a signature request; `withPss` says that it has to name a hash and a
// padding, which otherwise it must not. Throws std::invalid_argument with a sentence.
SignatureRequest parseSignatureRequest(const std::string& body, bool withPss);

}  // namespace localservice
