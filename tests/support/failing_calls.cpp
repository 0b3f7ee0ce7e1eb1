#include <openssl/ssl.h>

#include <cstdlib>
#include <string_view>
#include <utility>

// The linker has these stand before the TLS library's, and what FAILING_CALL names fails.

static bool isConnected;

static bool fails(std::string_view call) { return std::getenv("FAILING_CALL") == call; }

// NOLINTBEGIN(bugprone-macro-parentheses,bugprone-reserved-identifier)
#define WRAP(result, name, parameters, arguments, condition, failure) \
  extern "C" decltype(name) __real_##name;                            \
  extern "C" result __wrap_##name parameters {                        \
    return (condition) ? (failure) : __real_##name arguments;         \
  }
WRAP(SSL_CTX*, SSL_CTX_new, (const SSL_METHOD* a), (a), fails("SSL_CTX_new"), nullptr)
WRAP(BIO*, BIO_new_ssl_connect, (SSL_CTX * a), (a), fails("BIO_new_ssl_connect"), nullptr)
WRAP(long, BIO_ctrl, (BIO * a, int what, long n, void* p), (a, what, n, p),
     (what == BIO_C_GET_SSL && fails("BIO_get_ssl")) ||
         (what == BIO_C_DO_STATE_MACHINE &&
          fails(std::exchange(isConnected, true) ? "BIO_do_handshake" : "BIO_do_connect")),
     0)
WRAP(int, SSL_set_cipher_list, (SSL * a, const char* list), (a, list), fails("SSL_set_cipher_list"),
     0)
WRAP(long, SSL_ctrl, (SSL * a, int what, long n, void* p), (a, what, n, p),
     what == SSL_CTRL_SET_TLSEXT_HOSTNAME && fails("SSL_set_tlsext_host_name"), 0)
WRAP(long, SSL_get_verify_result, (const SSL* a), (a), fails("SSL_get_verify_result"), 1)
WRAP(int, BIO_puts, (BIO * a, const char* text), (a, text),
     (std::string_view(text).starts_with("POST ") && fails("BIO_puts")) ||
         (std::string_view(text).starts_with("GET ") && fails("BIO_puts lendo desafio")),
     0)
// NOLINTEND
