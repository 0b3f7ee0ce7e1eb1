#pragma once

#include <cstdint>
#include <optional>

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

// What follows is for the library that shows public keys too, and has no object of handle 0, which
// the standard keeps for none.
constexpr CK_OBJECT_HANDLE PUBLIC_KEY_HANDLE_OFFSET = 2 * KEY_HANDLE_OFFSET;
constexpr CK_OBJECT_HANDLE CERTIFICATE_ZERO_HANDLE = 3 * KEY_HANDLE_OFFSET;

// An object of the token: what it is, and of which certificate.
struct ObjectName {
  CK_OBJECT_CLASS objectClass;  // CKO_CERTIFICATE, CKO_PRIVATE_KEY or CKO_PUBLIC_KEY
  std::uint64_t id;             // below KEY_HANDLE_OFFSET
};

constexpr CK_OBJECT_HANDLE objectHandle(const ObjectName& name) {
  switch (name.objectClass) {
    case CKO_PRIVATE_KEY:
      return privateKeyHandle(name.id);
    case CKO_PUBLIC_KEY:
      return name.id + PUBLIC_KEY_HANDLE_OFFSET;
    default:
      return name.id == 0 ? CERTIFICATE_ZERO_HANDLE : certificateHandle(name.id);
  }
}

// Returns the object that `handle` is of; nothing when no object can have it.
constexpr std::optional<ObjectName> objectName(CK_OBJECT_HANDLE handle) {
  if (handle == 0 || handle > CERTIFICATE_ZERO_HANDLE) return std::nullopt;
  if (handle == CERTIFICATE_ZERO_HANDLE) return ObjectName{CKO_CERTIFICATE, 0};
  if (handle >= PUBLIC_KEY_HANDLE_OFFSET) {
    return ObjectName{CKO_PUBLIC_KEY, handle - PUBLIC_KEY_HANDLE_OFFSET};
  }
  return ObjectName{isPrivateKeyHandle(handle) ? CKO_PRIVATE_KEY : CKO_CERTIFICATE,
                    certificateIdOf(handle)};
}

}  // namespace brivasign
