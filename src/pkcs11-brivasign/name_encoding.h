#pragma once

#include <cstddef>

#include "openssl_handles.h"

namespace brivasign {

// A distinguished name in DER: `length` bytes, 0 when it could not be encoded.
struct NameEncoding {
  OpensslBytes bytes;
  std::size_t length = 0;
};

// Encodes `name`, an issuer or subject of a certificate.
inline NameEncoding encodeName(X509_NAME* name) {
  unsigned char* bytes = nullptr;
  const int length = i2d_X509_NAME(name, &bytes);
  return {OpensslBytes(bytes), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace brivasign
