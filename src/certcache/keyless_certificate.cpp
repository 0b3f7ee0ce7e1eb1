#include "certcache/keyless_certificate.h"

#include <openssl/opensslv.h>

#include <cstdlib>

#include "out_of_memory.h"

#if OPENSSL_VERSION_NUMBER >= 0x30000000L
#include <openssl/provider.h>
#endif

namespace brivasign {
namespace {

// Parses into `certificate`; null lets the parser make one that decodes its key.
X509Ptr parseInto(X509* certificate, BIO* source) {
  if (d2i_X509_bio(source, &certificate) != nullptr) return X509Ptr(certificate);
  X509_free(certificate);
  return nullptr;
}

}  // namespace

#if OPENSSL_VERSION_NUMBER >= 0x30000000L

KeylessContext::KeylessContext() : library_(OSSL_LIB_CTX_new()) {
  if (library_ != nullptr) provider_ = OSSL_PROVIDER_load(library_, "null");
  if (provider_ != nullptr) return;
  OSSL_LIB_CTX_free(library_);
  throw OutOfMemory();
}

KeylessContext::~KeylessContext() {
  OSSL_PROVIDER_unload(provider_);
  OSSL_LIB_CTX_free(library_);
}

X509Ptr KeylessContext::parse(BIO* source) const {
  return parseInto(X509_new_ex(library_, nullptr), source);
}

#else

// Releases before 3.0 decode a key only when it is asked for.
KeylessContext::KeylessContext() = default;
KeylessContext::~KeylessContext() = default;
X509Ptr KeylessContext::parse(BIO* source) const { return parseInto(nullptr, source); }

#endif

namespace {

KeylessContext* shared;

void freeShared() {
  delete shared;
  shared = nullptr;
}

// Makes the context, which goes when the module is unloaded, before the TLS library's own end,
// which was registered earlier. Returns whether there is one.
bool makeShared() {
  try {
    shared = new KeylessContext;
  } catch (...) {
    return false;
  }
  if (std::atexit(freeShared) != 0) freeShared();
  return shared != nullptr;
}

}  // namespace

X509Ptr parseKeylessCertificate(BIO* source) {
  // Threads that ask first at the same time make one context and wait for it.
  static const bool isMade = makeShared();
  // A host's exit handler may ask when it is gone again.
  return isMade && shared != nullptr ? shared->parse(source) : parseInto(nullptr, source);
}

}  // namespace brivasign
