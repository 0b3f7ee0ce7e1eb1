#include <openssl/asn1.h>
#include <openssl/x509.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "certcache/certcache.h"
#include "certcache/certificate_label.h"
#include "certcache/object_handle.h"
#include "host_memory.h"
#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/name_encoding.h"
#include "pkcs11.h"

namespace brivasign {
namespace {

// The object that a query is about.
struct QueriedObject {
  std::uint64_t id;
  bool isPrivateKey;
  X509Ptr certificate;
};

// A 2048-bit RSAPublicKey in DER: the modulus follows two headers and its leading zero octet.
constexpr std::size_t MODULUS_OFFSET = 9;
constexpr std::size_t MODULUS_LENGTH = 256;

// Answers with `length` bytes without reading the caller's length: the caller offers what the
// attribute's type or an earlier size query tells.
CK_RV put(CK_ATTRIBUTE& attribute, const void* value, std::size_t length) {
  if (attribute.pValue != nullptr && length != 0) std::memcpy(attribute.pValue, value, length);
  attribute.ulValueLen = length;
  return CKR_OK;
}

CK_RV putUlong(CK_ATTRIBUTE& attribute, CK_ULONG value) {
  return put(attribute, &value, sizeof value);
}

CK_RV putBool(CK_ATTRIBUTE& attribute, bool value) {
  const CK_BBOOL byte = value ? CK_TRUE : CK_FALSE;
  return put(attribute, &byte, sizeof byte);
}

// Returns whether the caller offers a buffer that cannot hold `length` bytes.
bool isTooSmall(const CK_ATTRIBUTE& attribute, std::uint64_t length) {
  return attribute.pValue != nullptr && attribute.ulValueLen < length;
}

CK_RV putLabel(CK_ATTRIBUTE& attribute, const X509* certificate) {
  const std::string label = certificateLabel(certificate);
  if (!isTooSmall(attribute, label.size())) return put(attribute, label.data(), label.size());
  attribute.ulValueLen = label.size();
  return CKR_BUFFER_TOO_SMALL;
}

// Answers with the certificate's file as stored. A private key has no value to show.
CK_RV putValue(CK_ATTRIBUTE& attribute, const QueriedObject& object) {
  if (object.isPrivateKey) return CKR_OK;
  RawCertificateFile file(object.id);
  CK_RV result = CKR_OK;
  if (isTooSmall(attribute, file.size())) {
    result = CKR_BUFFER_TOO_SMALL;
  } else if (attribute.pValue != nullptr &&
             !file.read(static_cast<unsigned char*>(attribute.pValue), file.size())) {
    result = CKR_DEVICE_ERROR;
  }
  attribute.ulValueLen = file.size();
  return result;
}

CK_RV putName(CK_ATTRIBUTE& attribute, X509_NAME* name) {
  const NameEncoding encoding = encodeName(name);
  return put(attribute, encoding.bytes.get(), encoding.length);
}

// The magnitude as the parser holds it, not the INTEGER's encoding.
CK_RV putSerialNumber(CK_ATTRIBUTE& attribute, const X509* certificate) {
  const ASN1_INTEGER* const serial = X509_get0_serialNumber(certificate);
  return put(attribute, ASN1_STRING_get0_data(serial),
             static_cast<std::size_t>(ASN1_STRING_length(serial)));
}

// The bytes at the modulus' place in a 2048-bit RSA key. Other keys have no meaningful answer; what
// lies beyond the end of theirs is zero.
CK_RV putModulus(CK_ATTRIBUTE& attribute, const X509* certificate) {
  const ASN1_BIT_STRING* const key = X509_get0_pubkey_bitstr(certificate);
  const std::string_view content(reinterpret_cast<const char*>(ASN1_STRING_get0_data(key)),
                                 static_cast<std::size_t>(ASN1_STRING_length(key)));
  std::array<char, MODULUS_LENGTH> modulus = {};
  if (content.size() > MODULUS_OFFSET) {
    content.copy(modulus.data(), modulus.size(), MODULUS_OFFSET);
  }
  return put(attribute, modulus.data(), modulus.size());
}

// Answers one entry of the template. Certificates and keys answer alike but for what they are.
CK_RV answer(CK_ATTRIBUTE& attribute, const QueriedObject& object) {
  const X509* const certificate = object.certificate.get();
  switch (attribute.type) {
    case CKA_CLASS:
      return putUlong(attribute, object.isPrivateKey ? CKO_PRIVATE_KEY : CKO_CERTIFICATE);
    case CKA_TOKEN:
    case CKA_SENSITIVE:
      return putBool(attribute, true);
    case CKA_PRIVATE:
      return putBool(attribute, object.isPrivateKey);
    case CKA_LABEL:
      return putLabel(attribute, certificate);
    case CKA_VALUE:
      return putValue(attribute, object);
    case CKA_CERTIFICATE_TYPE:
      return putUlong(attribute, CKC_X_509);
    case CKA_ISSUER:
      return putName(attribute, X509_get_issuer_name(certificate));
    case CKA_SERIAL_NUMBER:
      return putSerialNumber(attribute, certificate);
    case CKA_KEY_TYPE:
      return putUlong(attribute, CKK_RSA);
    case CKA_SUBJECT:
      return putName(attribute, X509_get_subject_name(certificate));
    case CKA_ID:
      return putUlong(attribute, object.id);
    case CKA_MODULUS:
      return putModulus(attribute, certificate);
    case CKA_EXTRACTABLE:
    case CKA_ALWAYS_AUTHENTICATE:
      return putBool(attribute, false);
    default:
      return CKR_ATTRIBUTE_TYPE_INVALID;
  }
}

}  // namespace
}  // namespace brivasign

using namespace brivasign;

// The operation in progress does not matter: attributes are read during a search and a signature.
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession),
                                         arguments(pTemplate != nullptr && ulCount != 0))) {
    return refusal;
  }
  return orHostMemory([&]() -> CK_RV {
    const std::uint64_t id = certificateIdOf(hObject);
    const QueriedObject object = {id, isPrivateKeyHandle(hObject), loadCertificate(id)};
    if (object.certificate == nullptr) return CKR_DEVICE_ERROR;

    // An entry that fails does not stop the others; the last failure is the result.
    CK_RV result = CKR_OK;
    for (CK_ULONG i = 0; i < ulCount; ++i) {
      if (const CK_RV failure = answer(pTemplate[i], object)) result = failure;
    }
    return result;
  });
}
