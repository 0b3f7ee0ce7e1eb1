// What the module is measured against as a library: built and linked the same way, it initialises
// and ends the TLS library and does nothing else. It bears names of the export list so that the
// linker treats it as it treats the module. Everything of the TLS library that it holds is what the
// initialisation alone brings along.

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>

#include "pkcs11.h"

CK_RV C_Initialize(CK_VOID_PTR /*pInitArgs*/) noexcept {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
  SSL_library_init();
  SSL_load_error_strings();
  return CKR_OK;
}

CK_RV C_Finalize(CK_VOID_PTR /*pReserved*/) noexcept {
  EVP_cleanup();
  ERR_free_strings();
  return CKR_OK;
}
