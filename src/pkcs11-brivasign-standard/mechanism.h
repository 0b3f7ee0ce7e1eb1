#pragma once

#include <openssl/evp.h>

#include <span>

#include "pkcs11.h"

// What the token can do: one table for what it tells and for what it does.

namespace brivasign::standard {

// Of keys in bits: what the TLS library verifies.
constexpr CK_ULONG LEAST_KEY_SIZE = 512;
constexpr CK_ULONG GREATEST_KEY_SIZE = 16384;

struct Hash {
  CK_MECHANISM_TYPE type;
  CK_RSA_PKCS_MGF_TYPE mask;  // the mask generation function that is made of it
  CK_ULONG length;            // bytes
  const EVP_MD* (*function)();
};

enum class Padding { NONE, PKCS1, PSS };

struct Mechanism {
  CK_MECHANISM_TYPE type;
  Padding padding;   // NONE: it digests and does not sign
  const Hash* hash;  // made here; null: the application has made it
};

// All of them, signing ones first.
std::span<const Mechanism> mechanisms();

// The types of those that sign, as CKA_ALLOWED_MECHANISMS has them.
std::span<const CK_MECHANISM_TYPE> signingMechanisms();

// Returns the mechanism of `type`; null when there is none.
const Mechanism* findMechanism(CK_MECHANISM_TYPE type);

// Returns the hash whose mechanism is `type`; null when there is none.
const Hash* findHash(CK_MECHANISM_TYPE type);

}  // namespace brivasign::standard
