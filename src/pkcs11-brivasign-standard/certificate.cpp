#include "pkcs11-brivasign-standard/certificate.h"

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "certcache/certificate_label.h"
#include "out_of_memory.h"
#include "pkcs11-brivasign-standard/error_queue.h"

namespace brivasign::standard {
namespace {

constexpr std::size_t CHECK_VALUE_LENGTH = 3;  // bytes

// Returns the DER encoding that `encode`, one of the TLS library's i2d functions, makes of
// `object`.
template <class Encode, class Object>
std::string encoded(Encode encode, Object* object) {
  unsigned char* bytes = nullptr;
  const int length = encode(object, &bytes);
  const OpensslBytes owner(bytes);
  if (length <= 0) throw OutOfMemory();
  return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

std::string dateOf(const ASN1_TIME* time) {
  const TimePtr written(ASN1_TIME_to_generalizedtime(time, nullptr));
  if (written == nullptr) return {};
  // It begins with year, month and day.
  const auto* const text = reinterpret_cast<const char*>(ASN1_STRING_get0_data(written.get()));
  return {text, sizeof(CK_DATE)};
}

std::string checkValueOf(const std::string& value) {
  unsigned char hash[EVP_MAX_MD_SIZE];
  if (EVP_Digest(value.data(), value.size(), hash, nullptr, EVP_sha1(), nullptr) != 1) return {};
  return {reinterpret_cast<const char*>(hash), CHECK_VALUE_LENGTH};
}

std::string bytesOf(const BIGNUM* number) {
  std::string bytes(static_cast<std::size_t>(BN_num_bytes(number)), '\0');
  BN_bn2bin(number, reinterpret_cast<unsigned char*>(bytes.data()));
  return bytes;
}

// Reads the key's numbers where it is an RSA key.
void readRsaKey(const X509_PUBKEY* key, Certificate& certificate) {
  ASN1_OBJECT* algorithm = nullptr;
  const unsigned char* bytes = nullptr;
  int length = 0;
  if (X509_PUBKEY_get0_param(&algorithm, &bytes, &length, nullptr, key) != 1 ||
      OBJ_obj2nid(algorithm) != NID_rsaEncryption) {
    return;
  }
  const RsaPtr rsa(d2i_RSAPublicKey(nullptr, &bytes, length));
  if (rsa == nullptr) return;
  certificate.modulus = bytesOf(RSA_get0_n(rsa.get()));
  certificate.publicExponent = bytesOf(RSA_get0_e(rsa.get()));
  certificate.modulusBits = static_cast<CK_ULONG>(RSA_bits(rsa.get()));
}

}  // namespace

CertificatePtr readCertificate(const KeylessContext& context, std::uint64_t id, BIO* source) {
  ERR_clear_error();
  const X509Ptr parsed = context.parse(source);
  if (parsed == nullptr) {
    // The parser tells what is wrong with a file, but not of each lack of memory.
    if (ERR_peek_error() == 0) throw OutOfMemory();
    clearErrors();
    return nullptr;
  }
  X509* const x509 = parsed.get();
  X509_PUBKEY* const key = X509_get_X509_PUBKEY(x509);
  auto certificate = std::make_shared<Certificate>();
  certificate->id = id;
  certificate->value = encoded(i2d_X509, x509);
  certificate->label = certificateLabel(x509, NameForm::UTF8);
  certificate->subject = encoded(i2d_X509_NAME, X509_get_subject_name(x509));
  certificate->issuer = encoded(i2d_X509_NAME, X509_get_issuer_name(x509));
  certificate->serialNumber = encoded(i2d_ASN1_INTEGER, X509_get_serialNumber(x509));
  certificate->startDate = dateOf(X509_get0_notBefore(x509));
  certificate->endDate = dateOf(X509_get0_notAfter(x509));
  certificate->checkValue = checkValueOf(certificate->value);
  certificate->publicKeyInfo = encoded(i2d_X509_PUBKEY, key);
  readRsaKey(key, *certificate);
  clearErrors();
  return certificate;
}

}  // namespace brivasign::standard
