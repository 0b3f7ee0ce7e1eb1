#include "pkcs11-brivasign-standard/sign_operation.h"

#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstring>
#include <utility>

#include "log/log.h"
#include "out_of_memory.h"
#include "pkcs11-brivasign-standard/error_queue.h"
#include "service/approval.h"
#include "service/base64.h"
#include "service/tls_settings.h"

namespace brivasign::standard {
namespace {

// What the paddings add at least, in bytes.
constexpr std::size_t PKCS1_OVERHEAD = 11;
constexpr std::size_t PSS_OVERHEAD = 2;

// Returns the DER encoding of the DigestInfo of `digest`, made by `hash`: what PKCS#1 v1.5 pads.
std::string digestInfo(const Hash& hash, const std::string& digest) {
  const DigestInfoPtr info(X509_SIG_new());
  if (info == nullptr) throw OutOfMemory();
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* value = nullptr;
  X509_SIG_getm(info.get(), &algorithm, &value);
  if (X509_ALGOR_set0(algorithm, OBJ_nid2obj(EVP_MD_type(hash.function())), V_ASN1_NULL, nullptr) !=
          1 ||
      ASN1_OCTET_STRING_set(value, reinterpret_cast<const unsigned char*>(digest.data()),
                            static_cast<int>(digest.size())) != 1) {
    throw OutOfMemory();
  }
  unsigned char* bytes = nullptr;
  const int length = i2d_X509_SIG(info.get(), &bytes);
  const OpensslBytes owner(bytes);
  if (length <= 0) throw OutOfMemory();
  return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

// Reads the parameters of a PSS mechanism into `hash`. The service can name one hash, which is that
// of the mask too, and a salt as long as it.
CK_RV readPssParameters(const CK_MECHANISM& mechanism, const Hash* required, const Hash*& hash) {
  CK_RSA_PKCS_PSS_PARAMS parameters = {};
  if (mechanism.pParameter == nullptr || mechanism.ulParameterLen != sizeof parameters) {
    return CKR_MECHANISM_PARAM_INVALID;
  }
  std::memcpy(&parameters, mechanism.pParameter, sizeof parameters);
  hash = findHash(parameters.hashAlg);
  const bool isServed = hash != nullptr && (required == nullptr || required == hash) &&
                        parameters.mgf == hash->mask && parameters.sLen == hash->length;
  return isServed ? CKR_OK : CKR_MECHANISM_PARAM_INVALID;
}

// Returns whether the TLS library verifies what the key of `certificate` signs, and the padding of
// `scheme` holds the hash.
bool fits(const Scheme& scheme, const Certificate& certificate) {
  const CK_ULONG bits = certificate.modulusBits;
  if (bits < LEAST_KEY_SIZE || bits > GREATEST_KEY_SIZE ||
      (bits > OPENSSL_RSA_SMALL_MODULUS_BITS &&
       certificate.publicExponent.size() > OPENSSL_RSA_MAX_PUBEXP_BITS / 8)) {
    return false;
  }
  if (scheme.hash == nullptr) return true;
  if (scheme.padding == Padding::PSS) {
    return (bits + 6) / 8 >= 2 * scheme.hash->length + PSS_OVERHEAD;
  }
  const std::string longest(scheme.hash->length, '\0');
  return (bits + 7) / 8 >= digestInfo(*scheme.hash, longest).size() + PKCS1_OVERHEAD;
}

std::string decoded(const std::string& base64) {
  std::string bytes(base64.size() / 4 * 3 + 3, '\0');
  bytes.resize(decodeBase64(base64.c_str(), reinterpret_cast<unsigned char*>(bytes.data())));
  return bytes;
}

}  // namespace

SignOperation::SignOperation(const Mechanism& mechanism, const Scheme& scheme,
                             CertificatePtr certificate)
    : scheme_(scheme), certificate_(std::move(certificate)) {
  if (mechanism.hash != nullptr) digest_.emplace(*mechanism.hash);
}

CK_RV SignOperation::start(const CK_MECHANISM& mechanism, CertificatePtr certificate,
                           std::unique_ptr<SignOperation>& operation) {
  const Mechanism* const known = findMechanism(mechanism.mechanism);
  if (known == nullptr || known->padding == Padding::NONE) return CKR_MECHANISM_INVALID;
  Scheme scheme = {known->padding, known->hash};
  if (known->padding == Padding::PSS) {
    const CK_RV result = readPssParameters(mechanism, known->hash, scheme.hash);
    if (result != CKR_OK) return result;
  } else if (mechanism.ulParameterLen != 0) {
    return CKR_MECHANISM_PARAM_INVALID;
  }
  if (!fits(scheme, *certificate)) return CKR_KEY_SIZE_RANGE;
  operation.reset(new SignOperation(*known, scheme, std::move(certificate)));
  return CKR_OK;
}

std::size_t SignOperation::mostData() const {
  if (scheme_.padding == Padding::PSS) return scheme_.hash->length;
  return length() < PKCS1_OVERHEAD ? 0 : length() - PKCS1_OVERHEAD;
}

CK_RV SignOperation::update(std::span<const CK_BYTE> data) {
  hasParts_ = true;
  if (digest_) {
    digest_->update(data);
    return CKR_OK;
  }
  if (data.size() > mostData() - data_.size()) return CKR_DATA_LEN_RANGE;
  data_.append(data.begin(), data.end());
  return CKR_OK;
}

CK_RV SignOperation::finish(std::string& signature) {
  if (digest_) {
    data_ = digest_->finish();
    if (scheme_.padding == Padding::PKCS1) data_ = digestInfo(*scheme_.hash, data_);
  }
  const bool isPss = scheme_.padding == Padding::PSS;
  // No data at all is nothing that a user could be asked about.
  if (isPss ? data_.size() != scheme_.hash->length : data_.empty()) return CKR_DATA_LEN_RANGE;

  CK_RSA_PKCS_PSS_PARAMS parameters = {};
  if (isPss) parameters = {scheme_.hash->type, scheme_.hash->mask, scheme_.hash->length};
  const SignatureOutcome outcome =
      requestApproval({.data = reinterpret_cast<const unsigned char*>(data_.data()),
                       .dataLength = data_.size(),
                       .certificateId = certificate_->id,
                       .pss = isPss ? &parameters : nullptr},
                      HOST_NAME_CHECK);
  switch (outcome.decision) {
    case Decision::ACCEPTED:
      break;
    case Decision::REFUSED:
      return CKR_FUNCTION_REJECTED;
    case Decision::UNDECIDED:
      return CKR_FUNCTION_CANCELED;
    case Decision::MISTYPED:
      writeLog("Resposta do servico com um membro de tipo errado.");
      return CKR_DEVICE_ERROR;
    case Decision::FAILED:
      return CKR_DEVICE_ERROR;
  }
  std::string bytes = decoded(outcome.signature);
  ERR_clear_error();
  const bool isRight =
      bytes.size() == length() && isSignature(bytes, data_, scheme_, *certificate_);
  clearErrors();
  if (!isRight) {
    writeLog("A assinatura recebida nao confere com a chave do certificado.");
    return CKR_DEVICE_ERROR;
  }
  signature = std::move(bytes);
  return CKR_OK;
}

}  // namespace brivasign::standard
