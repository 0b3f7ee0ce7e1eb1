#pragma once

#include "openssl_handles.h"

namespace brivasign {

// Parses one DER certificate from the start of `source` without decoding its public key, which is
// most of the work and which nobody here uses: names, serial number, bit string and encoding are
// all there. Returns null when `source` does not begin with a certificate.
X509Ptr parseKeylessCertificate(BIO* source);

}  // namespace brivasign
