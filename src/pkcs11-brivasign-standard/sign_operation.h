#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

#include "pkcs11-brivasign-standard/certificate.h"
#include "pkcs11-brivasign-standard/digest_operation.h"
#include "pkcs11-brivasign-standard/signature_check.h"

namespace brivasign::standard {

// One signature in the making, over data that comes in parts. Throws where memory runs out.
class SignOperation {
 public:
  // Starts a signature by `mechanism`, whose parameters are copied, with the RSA key of
  // `certificate`. Returns CKR_OK and sets `operation`, or CKR_MECHANISM_INVALID,
  // CKR_MECHANISM_PARAM_INVALID or CKR_KEY_SIZE_RANGE.
  static CK_RV start(const CK_MECHANISM& mechanism, CertificatePtr certificate,
                     std::unique_ptr<SignOperation>& operation);

  // Of the signature, in bytes.
  [[nodiscard]] CK_ULONG length() const { return certificate_->modulus.size(); }

  // Whether data has come that C_Sign has not brought.
  [[nodiscard]] bool hasParts() const { return hasParts_; }

  // Takes data in. Returns CKR_OK or CKR_DATA_LEN_RANGE.
  CK_RV update(std::span<const CK_BYTE> data);

  // Asks the user for the signature over all that has come, and waits. Returns CKR_OK and sets
  // `signature`, which has been verified and is as long as it must be, or CKR_DATA_LEN_RANGE,
  // CKR_FUNCTION_REJECTED, CKR_FUNCTION_CANCELED or CKR_DEVICE_ERROR.
  CK_RV finish(std::string& signature);

 private:
  SignOperation(const Mechanism& mechanism, const Scheme& scheme, CertificatePtr certificate);

  // Returns the most bytes that an application may bring for the padding.
  [[nodiscard]] std::size_t mostData() const;

  Scheme scheme_;
  CertificatePtr certificate_;
  std::optional<DigestOperation> digest_;  // where the hash is made here
  std::string data_;                       // where it is not: what has come
  bool hasParts_ = false;
};

}  // namespace brivasign::standard
