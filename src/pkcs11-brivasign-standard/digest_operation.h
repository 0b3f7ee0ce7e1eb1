#pragma once

#include <span>
#include <string>

#include "openssl_handles.h"
#include "pkcs11-brivasign-standard/mechanism.h"

namespace brivasign::standard {

// One hash in the making, over data that comes in parts.
class DigestOperation {
 public:
  // Throws OutOfMemory when the TLS library has no memory for it.
  explicit DigestOperation(const Hash& hash);

  [[nodiscard]] CK_ULONG length() const { return hash_->length; }

  // Whether data has come that C_Digest has not brought.
  [[nodiscard]] bool hasParts() const { return hasParts_; }

  void update(std::span<const CK_BYTE> data);

  // Returns the hash and ends the operation.
  std::string finish();

 private:
  const Hash* hash_;
  DigestContextPtr context_;
  bool hasParts_ = false;
};

}  // namespace brivasign::standard
