#pragma once

#include "openssl_handles.h"

namespace brivasign {

// A context of the TLS library in which there is nothing to decode a key with: its one provider has
// no algorithm. It holds nothing of any certificate; making one for each would cost more than it
// saves. Any thread may use it at any time.
class KeylessContext {
 public:
  // Throws OutOfMemory.
  KeylessContext();
  KeylessContext(const KeylessContext&) = delete;
  KeylessContext& operator=(const KeylessContext&) = delete;
  ~KeylessContext();

  // Parses one DER certificate from the start of `source` without decoding its public key, which is
  // most of the work and which nobody here uses: names, serial number, bit string and encoding are
  // all there. Returns null when `source` does not begin with a certificate.
  X509Ptr parse(BIO* source) const;

 private:
  struct ossl_lib_ctx_st* library_ = nullptr;
  struct ossl_provider_st* provider_ = nullptr;
};

// Parses in a context that is made on first use and goes when the module is unloaded; where there
// is none, the key is decoded in vain.
X509Ptr parseKeylessCertificate(BIO* source);

}  // namespace brivasign
