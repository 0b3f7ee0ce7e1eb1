#include "service/secure_channel.h"

#include <csignal>

#include "log/log.h"
#include "service/host_process.h"

namespace brivasign {
namespace {

bool fail(const char* message) {
  writeLog(message);
  return false;
}

// The connect channel announces its operations here. When it first reads, the connection stands,
// and all waiting for the peer is still to come; how long connecting may take is the system's
// matter. Returns `result`, which lets the operation go on.
long watchForReading(BIO* connector, int operation, const char* /*data*/, int /*length*/,
                     long /*argument*/, long result) {
  if (operation == BIO_CB_READ) {
    BIO_set_callback(connector, nullptr);
    detectVanishedPeer(static_cast<int>(BIO_get_fd(connector, nullptr)));
  }
  return result;
}

// Connects the channel and makes the handshake. Only 0 counts as a failure of either step: a
// negative result (refused, not resolved, aborted) shows in what the server has to present.
bool connectAndVerify(BIO* channel, const char* host, const char* port,
                      HostNameCheck hostNameCheck) {
  BIO_set_conn_port(channel, port);
  BIO_set_conn_hostname(channel, host);
  BIO_set_callback(BIO_next(channel), watchForReading);

  SSL* connection = nullptr;
  BIO_get_ssl(channel, &connection);
  if (connection == nullptr) return fail("Erro BIO_get_ssl");
  if (!limitCiphers(connection)) return fail("Erro SSL_set_cipher_list");
  if (SSL_set_tlsext_host_name(connection, host) == 0) {
    return fail("Erro SSL_set_tlsext_host_name");
  }
  if (hostNameCheck == HostNameCheck::REQUIRED && SSL_set1_host(connection, host) == 0) {
    return fail("Erro SSL_set1_host");
  }
  if (BIO_do_connect(channel) == 0) return fail("Erro BIO_do_connect");
  if (BIO_do_handshake(channel) == 0) return fail("Erro BIO_do_handshake");

  if (SSL_get_verify_result(connection) == X509_V_ERR_HOSTNAME_MISMATCH) {
    return fail("O certificado do servico nao traz o nome do host.");
  }
  const X509Ptr peerCertificate(SSL_get_peer_certificate(connection));
  if (peerCertificate == nullptr) {
    return fail("SSL_get_peer_certificate veio NULL - sem certificado, ou sem conexao.");
  }
  if (SSL_get_verify_result(connection) != X509_V_OK) return fail("Erro SSL_get_verify_result");
  return true;
}

}  // namespace

bool openSecureChannel(SslContextPtr& outContext, BioPtr& outChannel, const char* host,
                       const char* port, HostNameCheck hostNameCheck) {
  // A write into a connection that the peer has closed must not end the host process.
  std::signal(SIGPIPE, SIG_IGN);

  SslContextPtr context = newTlsContext();
  if (context == nullptr) return fail("Erro SSL_CTX_new");

  BioPtr channel(BIO_new_ssl_connect(context.get()));
  if (channel == nullptr) return fail("Erro BIO_new_ssl_connect");
  if (!connectAndVerify(channel.get(), host, port, hostNameCheck)) return false;

  outContext = std::move(context);
  outChannel = std::move(channel);
  return true;
}

}  // namespace brivasign
