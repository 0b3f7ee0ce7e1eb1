#include "brivasign_check/handshake.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <poll.h>

#include <chrono>
#include <memory>

#include "brivasign_check/connection.h"
#include "brivasign_check/x509_text.h"
#include "service/tls_settings.h"

namespace diagnosis {
namespace {

using Facts = decltype(Finding::facts);

constexpr const char* TELL_OPERATOR = "tell those who run the service, with this report";

Facts factsOf(X509* certificate) {
  return {{"server certificate", nameText(X509_get_subject_name(certificate))},
          {"issued by", nameText(X509_get_issuer_name(certificate))},
          {"valid from", timeText(X509_get0_notBefore(certificate))},
          {"valid until", timeText(X509_get0_notAfter(certificate))}};
}

// Notes the certificate that fails verification; changes no result.
int noteFailure(int isGood, X509_STORE_CTX* verification) {
  X509* const certificate = X509_STORE_CTX_get_current_cert(verification);
  if (isGood != 0 || certificate == nullptr) return isGood;
  const auto* const connection = static_cast<const SSL*>(
      X509_STORE_CTX_get_ex_data(verification, SSL_get_ex_data_X509_STORE_CTX_idx()));
  *static_cast<Facts*>(SSL_get_app_data(connection)) = factsOf(certificate);
  return isGood;
}

const char* adviceFor(long verification) {
  switch (verification) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return "if this computer's date and time are right, tell those who run the service to renew "
             "the certificate";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return "correct this computer's date and time";
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return "the issuer is none that the module trusts: look for a proxy or protection program "
             "that intercepts connections and exempt this host; otherwise update the module";
    default:
      return TELL_OPERATOR;
  }
}

// Returns why the handshake failed, but for verification, and clears the library's queue.
std::string failureText(int sslError) {
  const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
  std::string text = "the server closed the connection";
  if (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE) {
    text = "the server did not answer within " + std::to_string(STEP_TIME.count()) + " seconds";
  } else if (reason != nullptr) {
    text = reason;
  }
  ERR_clear_error();
  return text;
}

// Connects until success, failure or the deadline. Returns the error of the last step.
int handshake(SSL* connection, int socket) {
  const Deadline deadline = std::chrono::steady_clock::now() + STEP_TIME;
  for (;;) {
    const int error = SSL_get_error(connection, SSL_connect(connection));
    if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) return error;
    const short events = error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
    if (!waitFor(socket, events, deadline)) return error;
  }
}

}  // namespace

Finding checkHandshake(int socket, const char* host) {
  const std::string subject = "secure channel";
  const brivasign::SslContextPtr context = brivasign::newTlsContext();
  const std::unique_ptr<SSL, decltype(&SSL_free)> connection(
      context == nullptr ? nullptr : SSL_new(context.get()), SSL_free);
  if (connection == nullptr || !brivasign::limitCiphers(connection.get()) ||
      SSL_set_tlsext_host_name(connection.get(), host) == 0 ||
      SSL_set_fd(connection.get(), socket) == 0) {
    return {Status::WRONG, subject, "the TLS library cannot be used: " + failureText(SSL_ERROR_SSL),
            "install the module again"};
  }
  Facts failed;
  SSL_set_app_data(connection.get(), &failed);
  SSL_set_verify(connection.get(), SSL_get_verify_mode(connection.get()), noteFailure);

  const int error = handshake(connection.get(), socket);
  const long verification = SSL_get_verify_result(connection.get());
  if (verification != X509_V_OK) {
    ERR_clear_error();
    return {Status::WRONG, subject,
            std::string("the server's certificate is refused: ") +
                X509_verify_cert_error_string(verification),
            adviceFor(verification), failed};
  }
  if (error != SSL_ERROR_NONE) {
    return {
        Status::WRONG, subject, "the handshake failed: " + failureText(error),
        "the module needs TLS 1.2: look for a proxy in between, and " + std::string(TELL_OPERATOR)};
  }
  const brivasign::X509Ptr server(SSL_get_peer_certificate(connection.get()));
  Finding finding = {Status::OK, subject,
                     std::string("handshake made and certificate verified: ") +
                         SSL_get_version(connection.get()) + ", " +
                         SSL_get_cipher_name(connection.get()),
                     ""};
  if (server != nullptr) finding.facts = factsOf(server.get());
  SSL_shutdown(connection.get());
  ERR_clear_error();
  return finding;
}

}  // namespace diagnosis
