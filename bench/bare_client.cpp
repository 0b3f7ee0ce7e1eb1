#include "bare_client.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>
#include <csignal>
#include <utility>

#include "local_signing_service/private_key.h"
#include "require.h"

namespace bench {
namespace {

using localservice::OpensslHandle;
using Context = OpensslHandle<SSL_CTX, SSL_CTX_free>;
using Channel = OpensslHandle<BIO, BIO_free_all>;
using Certificate = OpensslHandle<X509, X509_free>;

Context newContext(const std::vector<std::string>& anchors) {
  Context context(SSL_CTX_new(TLSv1_2_client_method()));
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_verify_depth(context.get(), 4);
  for (const std::string& text : anchors) {
    const Channel source(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    const Certificate anchor(PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr));
    X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), anchor.get());
  }
  return context;
}

// Has the system notice a service that vanishes without a word, like the module.
void keepAlive(int socket) {
  const auto set = [&](int level, int option, int value) {
    setsockopt(socket, level, option, &value, sizeof value);
  };
  set(SOL_SOCKET, SO_KEEPALIVE, 1);
  set(IPPROTO_TCP, TCP_KEEPIDLE, 30);
  set(IPPROTO_TCP, TCP_KEEPINTVL, 10);
  set(IPPROTO_TCP, TCP_KEEPCNT, 3);
  set(IPPROTO_TCP, TCP_USER_TIMEOUT, 60'000);
}

Channel connect(SSL_CTX* context, const char* port) {
  Channel channel(BIO_new_ssl_connect(context));
  BIO_set_conn_port(channel.get(), port);
  BIO_set_conn_hostname(channel.get(), "localhost");
  SSL* connection = nullptr;
  BIO_get_ssl(channel.get(), &connection);
  SSL_set_cipher_list(connection, "HIGH:!aNULL:!kRSA:!PSK:!SRP:!MD5:!RC4");
  SSL_set_tlsext_host_name(connection, "localhost");
  require(BIO_do_connect(channel.get()) == 1 && BIO_do_handshake(channel.get()) == 1,
          "the bare client cannot connect");
  keepAlive(static_cast<int>(BIO_get_fd(channel.get(), nullptr)));
  const Certificate peer(SSL_get_peer_certificate(connection));
  require(peer != nullptr && SSL_get_verify_result(connection) == X509_V_OK,
          "the bare client does not trust the service");
  return channel;
}

}  // namespace

BareClient::BareClient(std::vector<std::string> anchors, std::vector<std::string> requests)
    : anchors_(std::move(anchors)), requests_(std::move(requests)) {
  // Like the module, without the system's configuration file.
  OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
}

void BareClient::exchange(const char* port) const {
  // Closing a connection that the service has closed writes to it.
  std::signal(SIGPIPE, SIG_IGN);
  for (const std::string& request : requests_) {
    const Context context = newContext(anchors_);
    const Channel channel = connect(context.get(), port);
    BIO_puts(channel.get(), request.c_str());
    std::array<char, 3000> chunk;
    int received = 0;
    for (int count = 0; (count = BIO_read(channel.get(), chunk.data(), chunk.size())) > 0;) {
      received += count;
    }
    require(received > 0, "the service has not answered");
  }
}

}  // namespace bench
