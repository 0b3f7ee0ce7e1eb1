#include "service/tls_settings.h"

#include <openssl/pem.h>

#include <cstring>

#include "service/trust_anchors.h"

namespace brivasign {
namespace {

constexpr int VERIFY_DEPTH = 4;
// RSA keys of 2048 bits, SHA-256, and their like at the least. What a release of the TLS library
// takes by default differs.
constexpr int SECURITY_LEVEL = 2;
constexpr const char* CIPHER_LIST = "HIGH:!aNULL:!kRSA:!PSK:!SRP:!MD5:!RC4";

// Loads the trust anchors into the context's store. An anchor that does not parse vouches for
// nobody; the others still serve.
void addTrustAnchors(SSL_CTX* context) {
  for (const char* const text : trustAnchors) {
    const BioPtr source(BIO_new_mem_buf(text, static_cast<int>(std::strlen(text))));
    const X509Ptr anchor(PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr));
    X509_STORE_add_cert(SSL_CTX_get_cert_store(context), anchor.get());
  }
}

}  // namespace

void startTlsLibrary() {
#ifdef OPENSSL_INIT_NO_LOAD_CONFIG
  // The library would otherwise obey the system's configuration file and the one that OPENSSL_CONF
  // names, and a strict or hostile file there would stop every signature.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
#endif
  SSL_library_init();
  SSL_load_error_strings();
}

SslContextPtr newTlsContext() {
  SslContextPtr context(SSL_CTX_new(TLSv1_2_client_method()));
  if (context == nullptr) return context;
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_verify_depth(context.get(), VERIFY_DEPTH);
  SSL_CTX_set_security_level(context.get(), SECURITY_LEVEL);
  SSL_CTX_set_options(context.get(), 0);  // none, in so many words
  addTrustAnchors(context.get());
  return context;
}

bool limitCiphers(SSL* connection) { return SSL_set_cipher_list(connection, CIPHER_LIST) != 0; }

}  // namespace brivasign
