#include "certcache/keyless_certificate.h"

#include <openssl/opensslv.h>

#if OPENSSL_VERSION_NUMBER >= 0x30000000L
#include <openssl/provider.h>

#include <cstdlib>
#endif

namespace brivasign {
namespace {

#if OPENSSL_VERSION_NUMBER >= 0x30000000L

// A context of the TLS library in which there is nothing to decode a key with: its one provider has
// no algorithm. It holds nothing of any certificate; making one for each would cost more than it
// saves.
struct KeylessContext {
  OSSL_LIB_CTX* library;
  OSSL_PROVIDER* provider;
};
KeylessContext keyless;

void freeKeylessContext() {
  if (keyless.provider != nullptr) OSSL_PROVIDER_unload(keyless.provider);
  OSSL_LIB_CTX_free(keyless.library);
  keyless = {};
}

// Makes the context, which goes when the module is unloaded, before the TLS library's own end,
// which was registered earlier. Returns whether there is one: without it keys are decoded in vain.
bool makeKeylessContext() {
  keyless.library = OSSL_LIB_CTX_new();
  if (keyless.library != nullptr) keyless.provider = OSSL_PROVIDER_load(keyless.library, "null");
  if (keyless.provider == nullptr || std::atexit(freeKeylessContext) != 0) freeKeylessContext();
  return keyless.library != nullptr;
}

// Returns a certificate to parse into, null to let the parser make one that decodes its key.
X509* newCertificate() {
  // Threads that ask first at the same time make one context and wait for it.
  static const bool isMade = makeKeylessContext();
  // A host's exit handler may ask when it is gone again.
  return isMade && keyless.library != nullptr ? X509_new_ex(keyless.library, nullptr) : nullptr;
}

#else

// Releases before 3.0 decode a key only when it is asked for.
X509* newCertificate() { return nullptr; }

#endif

}  // namespace

X509Ptr parseKeylessCertificate(BIO* source) {
  X509* certificate = newCertificate();
  if (d2i_X509_bio(source, &certificate) != nullptr) return X509Ptr(certificate);
  X509_free(certificate);
  return nullptr;
}

}  // namespace brivasign
