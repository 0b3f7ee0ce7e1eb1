#pragma once

#include <string>

#include "pkcs11-brivasign-standard/certificate.h"
#include "pkcs11-brivasign-standard/mechanism.h"

namespace brivasign::standard {

// How a signature is padded. With PSS, `hash` is that of the data, of the mask, and as long as the
// salt.
struct Scheme {
  Padding padding;
  const Hash* hash;
};

// Returns whether `signature` is the one that the key of `certificate` makes of `data` under
// `scheme`: of PKCS#1 v1.5 what is padded, of PSS the hash.
bool isSignature(const std::string& signature, const std::string& data, const Scheme& scheme,
                 const Certificate& certificate);

}  // namespace brivasign::standard
