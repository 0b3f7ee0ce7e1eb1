#pragma once

#include <cstddef>

#include "openssl_handles.h"
#include "out_of_memory.h"

namespace brivasign {

// A distinguished name in DER: `length` bytes.
struct NameEncoding {
  OpensslBytes bytes;
  std::size_t length;
};

// Encodes `name`, an issuer or subject of a certificate.
inline NameEncoding encodeName(X509_NAME* name) {
  unsigned char* bytes = nullptr;
  const int length = i2d_X509_NAME(name, &bytes);
  if (length < 0) throw OutOfMemory();
  return {OpensslBytes(bytes), static_cast<std::size_t>(length)};
}

}  // namespace brivasign
