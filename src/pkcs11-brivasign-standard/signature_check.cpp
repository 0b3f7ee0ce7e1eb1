#include "pkcs11-brivasign-standard/signature_check.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

namespace brivasign::standard {
namespace {

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bool setPadding(EVP_PKEY_CTX* context, const Scheme& scheme) {
  if (scheme.padding == Padding::PKCS1) {
    return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) > 0;
  }
  const EVP_MD* const hash = scheme.hash->function();
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) > 0 &&
         EVP_PKEY_CTX_set_signature_md(context, hash) > 0 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md(context, hash) > 0 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(context, static_cast<int>(scheme.hash->length)) > 0;
}

}  // namespace

bool isSignature(const std::string& signature, const std::string& data, const Scheme& scheme,
                 const Certificate& certificate) {
  const unsigned char* encoding = bytesOf(certificate.publicKeyInfo);
  const KeyPtr key(
      d2i_PUBKEY(nullptr, &encoding, static_cast<long>(certificate.publicKeyInfo.size())));
  if (key == nullptr) return false;
  const KeyContextPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
  return context != nullptr && EVP_PKEY_verify_init(context.get()) > 0 &&
         setPadding(context.get(), scheme) &&
         EVP_PKEY_verify(context.get(), bytesOf(signature), signature.size(), bytesOf(data),
                         data.size()) == 1;
}

}  // namespace brivasign::standard
