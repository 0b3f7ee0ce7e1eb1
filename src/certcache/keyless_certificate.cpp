#include "certcache/keyless_certificate.h"

#include <openssl/opensslv.h>

#if OPENSSL_VERSION_NUMBER >= 0x30000000L
#include <openssl/provider.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#endif

namespace brivasign {
namespace {

#if OPENSSL_VERSION_NUMBER >= 0x30000000L

// A context of the TLS library in which there is nothing to decode a key with: its one provider has
// no algorithm. It holds nothing of any certificate; making one for each would cost more than it
// saves.
struct KeylessContext {
  KeylessContext() = default;
  KeylessContext(const KeylessContext&) = delete;
  KeylessContext& operator=(const KeylessContext&) = delete;
  ~KeylessContext() {
    if (provider != nullptr) OSSL_PROVIDER_unload(provider);
    OSSL_LIB_CTX_free(library);
  }

  OSSL_LIB_CTX* const library = OSSL_LIB_CTX_new();
  OSSL_PROVIDER* const provider =
      library == nullptr ? nullptr : OSSL_PROVIDER_load(library, "null");
};

// No lock: a thread of the parent that held it would hold it in a forked child for ever.
std::atomic<KeylessContext*> keyless;

void freeKeylessContext() { delete keyless.exchange(nullptr); }

// Returns the context, null when it cannot be made. It goes when the module is unloaded, before the
// TLS library's own end, which was registered earlier.
const KeylessContext* keylessContext() {
  KeylessContext* known = keyless.load();
  if (known != nullptr) return known;
  auto made = std::make_unique<KeylessContext>();
  if (made->provider == nullptr) return nullptr;
  // Another thread may have been faster.
  if (!keyless.compare_exchange_strong(known, made.get())) return known;
  const KeylessContext* const context = made.release();
  if (std::atexit(freeKeylessContext) == 0) return context;
  freeKeylessContext();
  return nullptr;
}

// Returns a certificate to parse into, null to let the parser make one that decodes its key.
X509* newCertificate() {
  const KeylessContext* const context = keylessContext();
  return context == nullptr ? nullptr : X509_new_ex(context->library, nullptr);
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
