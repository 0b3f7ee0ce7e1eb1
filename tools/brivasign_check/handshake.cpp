#include "brivasign_check/handshake.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

#include "brivasign_check/x509_text.h"
#include "service/tls_settings.h"

namespace diagnosis {
namespace {

constexpr const char* TELL_OPERATOR = "tell those who run the service, with this report";

// What a handshake leaves behind.
struct Trace {
  Facts refused;              // about the certificate that fails verification
  bool isCa = false;          // whether that is one above the server's
  bool hasOtherName = false;  // whether the server's is, besides, for another host
  std::string start;          // of what the server says: as many bytes as a record's header has
};

Facts factsOf(X509* certificate) {
  return {{"subject", nameText(X509_get_subject_name(certificate))},
          {"issuer", nameText(X509_get_issuer_name(certificate))},
          {"validFrom", timeText(X509_get0_notBefore(certificate))},
          {"validUntil", timeText(X509_get0_notAfter(certificate))}};
}

bool isFor(X509* certificate, const char* host) {
  return brivasign::HOST_NAME_CHECK == brivasign::HostNameCheck::NONE ||
         X509_check_host(certificate, host, 0, 0, nullptr) == 1;
}

// Notes the certificate that fails verification; changes no result.
int noteFailure(int isGood, X509_STORE_CTX* verification) {
  X509* const certificate = X509_STORE_CTX_get_current_cert(verification);
  if (isGood != 0 || certificate == nullptr) return isGood;
  const auto* const connection = static_cast<const SSL*>(
      X509_STORE_CTX_get_ex_data(verification, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto* const trace = static_cast<Trace*>(SSL_get_app_data(connection));
  trace->refused = factsOf(certificate);
  trace->isCa = X509_STORE_CTX_get_error_depth(verification) > 0;
  trace->hasOtherName = !isFor(X509_STORE_CTX_get0_cert(verification),
                               SSL_get_servername(connection, TLSEXT_NAMETYPE_host_name));
  return isGood;
}

// Notes what comes from the server first.
void noteStart(int isSent, int /*version*/, int type, const void* bytes, std::size_t length,
               SSL* connection, void* /*argument*/) {
  std::string& start = static_cast<Trace*>(SSL_get_app_data(connection))->start;
  if (isSent == 0 && type == SSL3_RT_HEADER && start.empty()) {
    start.assign(static_cast<const char*>(bytes), length);
  }
}

// Returns whether `start` begins a record of TLS: its type and the first byte of its version.
bool isTls(const std::string& start) {
  return start.size() > 1 && start[0] >= SSL3_RT_CHANGE_CIPHER_SPEC &&
         start[0] <= SSL3_RT_APPLICATION_DATA && start[1] == SSL3_VERSION_MAJOR;
}

Finding refusedCertificate(long verification, const Trace& trace) {
  const Facts& facts = trace.refused;
  const std::string message =
      std::string(trace.isCa ? "a CA's" : "the server's") +
      " certificate is refused: " + X509_verify_cert_error_string(verification) +
      (trace.hasOtherName ? "; the server's is for another host besides" : "");
  constexpr const char* NEW_CHAIN =
      "update the module, or let those who run the service send another chain";
  switch (verification) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return {Status::WRONG, "secure-channel.certificate-expired", message,
              "if this computer's date and time are right, " +
                  std::string(trace.isCa ? NEW_CHAIN
                                         : "tell those who run the service to renew the "
                                           "certificate"),
              facts};
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return {Status::WRONG, "secure-channel.certificate-not-yet-valid", message,
              "correct this computer's date and time; if they are right, " +
                  std::string(trace.isCa ? NEW_CHAIN : TELL_OPERATOR),
              facts};
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return {Status::WRONG, "secure-channel.certificate-untrusted", message,
              "the issuer is none that the module trusts: look for the sign-in page of a public "
              "network, or for a proxy or protection program that intercepts connections, and "
              "exempt this host; otherwise update the module",
              facts};
    default:
      return {Status::WRONG, "secure-channel.certificate-refused", message, TELL_OPERATOR, facts};
  }
}

// Tells why the handshake failed, but for verification: `sslError` is that of SSL_get_error, the
// reason the last in the library's queue.
Finding failedHandshake(int sslError, const std::string& start) {
  if (start.starts_with("HTTP/")) {
    return {Status::WRONG, "secure-channel.plain-http",
            "what answers speaks plain HTTP instead of TLS",
            "look for the sign-in page of a public network (open any page in a browser and sign "
            "in) or for a proxy in between"};
  }
  if (!start.empty() && !isTls(start)) {
    return {Status::WRONG, "secure-channel.no-tls", "what answers does not speak TLS",
            "look for a proxy in between, and tell those who run the service"};
  }
  const unsigned long error = ERR_peek_last_error();
  if (sslError != SSL_ERROR_SSL || ERR_GET_REASON(error) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
    return {Status::WRONG, "secure-channel.closed",
            "the server, or something in between, closed the connection during the handshake",
            "look for a firewall or proxy that cuts connections to this host, and tell those who "
            "run the service"};
  }
  const char* const text = ERR_reason_error_string(error);
  const int reason = ERR_GET_REASON(error);
  const bool isVersion = reason == SSL_R_TLSV1_ALERT_PROTOCOL_VERSION ||
                         reason == SSL_R_UNSUPPORTED_PROTOCOL || reason == SSL_R_WRONG_SSL_VERSION;
  return {
      Status::WRONG, "secure-channel.refused",
      std::string("the handshake was refused: ") + (text == nullptr ? "unknown reason" : text),
      (isVersion ? "the module needs TLS 1.2: look for a proxy in between, and " : std::string()) +
          TELL_OPERATOR};
}

// Tells of a handshake that was made, in the words `made`, and whether the library that follows the
// standard misses the name `host` in the server's certificate, or was built not to look for it.
Finding judgeHostName(X509* server, const char* host, const std::string& made) {
  if (brivasign::HOST_NAME_CHECK == brivasign::HostNameCheck::NONE) {
    return {Status::NOTE, "secure-channel.name-unchecked",
            made +
                "; pkcs11-brivasign-standard is built not to compare its name: whoever holds any "
                "certificate of a trusted CA can pose as the service"};
  }
  if (!isFor(server, host)) {
    return {Status::WRONG, "secure-channel.other-name",
            std::string("the server's certificate does not carry the name ") + host +
                ": pkcs11-brivasign-standard refuses it, pkcs11-brivasign does not",
            TELL_OPERATOR};
  }
  return {Status::OK, "secure-channel.ok", made};
}

}  // namespace

Finding checkHandshake(int socket, const char* host) {
  const brivasign::SslContextPtr context = brivasign::newTlsContext();
  const std::unique_ptr<SSL, decltype(&SSL_free)> connection(
      context == nullptr ? nullptr : SSL_new(context.get()), SSL_free);
  if (connection == nullptr || !brivasign::limitCiphers(connection.get()) ||
      SSL_set_tlsext_host_name(connection.get(), host) == 0 ||
      SSL_set_fd(connection.get(), socket) == 0) {
    return {Status::WRONG, "secure-channel.unusable-library", "the TLS library cannot be used",
            "install the module again"};
  }
  Trace trace;
  SSL_set_app_data(connection.get(), &trace);
  SSL_set_verify(connection.get(), SSL_get_verify_mode(connection.get()), noteFailure);
  SSL_set_msg_callback(connection.get(), noteStart);

  const int error = SSL_get_error(connection.get(), SSL_connect(connection.get()));
  const long verification = SSL_get_verify_result(connection.get());
  if (verification != X509_V_OK) return refusedCertificate(verification, trace);
  if (error != SSL_ERROR_NONE) return failedHandshake(error, trace.start);

  const brivasign::X509Ptr server(SSL_get_peer_certificate(connection.get()));
  Finding finding = judgeHostName(server.get(), host,
                                  std::string("handshake made and certificate verified: ") +
                                      SSL_get_version(connection.get()) + ", " +
                                      SSL_get_cipher_name(connection.get()));
  finding.facts = factsOf(server.get());
  SSL_shutdown(connection.get());
  return finding;
}

}  // namespace diagnosis
