#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "pkcs11.h"

namespace brivasign::standard {

// Applies the length convention to an output of `length` bytes. Returns the answer to a query of
// the length, and to a buffer that is too small; nothing when the output fits. Sets the length
// anyway.
inline std::optional<CK_RV> checkRoom(const CK_BYTE* buffer, CK_ULONG_PTR bufferLen,
                                      CK_ULONG length) {
  const CK_ULONG room = std::exchange(*bufferLen, length);
  if (buffer == nullptr) return CKR_OK;
  if (room < length) return CKR_BUFFER_TOO_SMALL;
  return std::nullopt;
}

// Copies `bytes` to a buffer that has room.
inline void putBytes(const std::string& bytes, CK_BYTE_PTR buffer) {
  std::copy(bytes.begin(), bytes.end(), buffer);
}

}  // namespace brivasign::standard
