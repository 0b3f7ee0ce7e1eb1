#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "certcache/keyless_certificate.h"
#include "pkcs11.h"

namespace brivasign::standard {

// What a certificate says, in the forms that attributes have. Never changed once it is made, so
// that all threads read it.
struct Certificate {
  CK_ULONG id;                // its number in the cache
  std::string value;          // the certificate itself in DER
  std::string label;          // as a person reads it
  std::string subject;        // DER
  std::string issuer;         // DER
  std::string serialNumber;   // DER, tag and length included
  std::string startDate;      // a CK_DATE; empty when it cannot be told
  std::string endDate;        // the same
  std::string checkValue;     // the first three bytes of the SHA-1 hash of `value`
  std::string publicKeyInfo;  // DER of its SubjectPublicKeyInfo

  // Of an RSA key, both big-endian without leading zeros; empty and 0 for any other key.
  std::string modulus;
  std::string publicExponent;
  CK_ULONG modulusBits;

  [[nodiscard]] bool hasRsaKey() const { return !modulus.empty(); }
};

using CertificatePtr = std::shared_ptr<const Certificate>;

// Reads the certificate of number `id` from the start of `source`, in `context`. Returns null when
// there is none. Throws where memory runs out.
CertificatePtr readCertificate(const KeylessContext& context, std::uint64_t id, BIO* source);

}  // namespace brivasign::standard
