#pragma once

#include <cstdint>

#include "pkcs11.h"

// The one rule that ties object handles to certificate identifiers, in both directions and for
// both libraries. A certificate's handle is its identifier; its private key's handle lies
// KEY_HANDLE_OFFSET above.

namespace brivasign {

constexpr CK_OBJECT_HANDLE KEY_HANDLE_OFFSET = 0x80000000;

// Returns the handle of certificate `id`. An identifier read from a directory entry is widened with
// its sign first.
constexpr CK_OBJECT_HANDLE certificateHandle(std::uint64_t id) { return id; }

// Returns the handle of the private key of certificate `id`, modulo 2^64.
constexpr CK_OBJECT_HANDLE privateKeyHandle(std::uint64_t id) { return id + KEY_HANDLE_OFFSET; }

// Returns whether `handle` is a private key's: any bit from bit 31 upward is set.
constexpr bool isPrivateKeyHandle(CK_OBJECT_HANDLE handle) { return handle >= KEY_HANDLE_OFFSET; }

// Returns the identifier of the certificate that `handle`, of either kind, belongs to.
constexpr std::uint64_t certificateIdOf(CK_OBJECT_HANDLE handle) {
  return isPrivateKeyHandle(handle) ? handle - KEY_HANDLE_OFFSET : handle;
}

}  // namespace brivasign
