#include "tls_listener.h"

#include <fcntl.h>
#include <openssl/err.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "private_key.h"
#include "tls_connection.h"

namespace localservice {
namespace {

using Tcp = asio::ip::tcp;

constexpr std::chrono::milliseconds RETRY_PAUSE{100};

void require(bool done, const std::string& failure) {
  if (!done) {
    // The first error tells the cause; those after it only pass it on.
    const char* const reason = ERR_reason_error_string(ERR_peek_error());
    ERR_clear_error();
    throw std::runtime_error(failure + (reason != nullptr ? std::string(": ") + reason : ""));
  }
}

// Answers what name a client asks for; `expected` is the one that there is.
int checkServerName(SSL* connection, int* /*alert*/, void* expected) {
  const char* const asked = SSL_get_servername(connection, TLSEXT_NAMETYPE_host_name);
  const bool isExpected =
      asked != nullptr && std::strcmp(asked, static_cast<const char*>(expected)) == 0;
  return isExpected ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_ALERT_FATAL;
}

OpensslHandle<SSL_CTX, SSL_CTX_free> makeContext(const ListenerOptions& options) {
  ERR_clear_error();
  OpensslHandle<SSL_CTX, SSL_CTX_free> context(SSL_CTX_new(TLS_server_method()));
  SSL_CTX* const tls = context.get();
  require(tls != nullptr, "cannot set up TLS");
  SSL_CTX_set_security_level(tls, options.securityLevel);
  require(SSL_CTX_set_min_proto_version(tls, options.minimumVersion) == 1 &&
              SSL_CTX_set_max_proto_version(tls, options.maximumVersion) == 1,
          "cannot use these TLS versions");
  require(
      options.cipherList.empty() || SSL_CTX_set_cipher_list(tls, options.cipherList.c_str()) == 1,
      "cannot use the cipher list " + options.cipherList);
  // Tells in plain words that the file is missing, which OpenSSL does not.
  readFile(options.certificateFile);
  require(SSL_CTX_use_certificate_chain_file(tls, options.certificateFile.c_str()) == 1,
          "cannot use the certificate file " + options.certificateFile);
  require(
      SSL_CTX_use_PrivateKey(tls, loadPrivateKey(options.keyFile).get()) == 1 &&
          SSL_CTX_check_private_key(tls) == 1,
      "the key " + options.keyFile + " does not fit the certificate " + options.certificateFile);
  if (options.serverName != nullptr) {
    SSL_CTX_set_tlsext_servername_callback(tls, checkServerName);
    SSL_CTX_set_tlsext_servername_arg(tls, const_cast<char*>(options.serverName));
  }
  return context;
}

// What this process starts must not hold on to it.
void closeOnExec(int descriptor) { ::fcntl(descriptor, F_SETFD, FD_CLOEXEC); }

Tcp::acceptor listenOn(asio::io_context& context, const ListenerOptions& options) {
  asio::error_code error;
  const auto address = asio::ip::make_address(options.address, error);
  require(!error, "there is no address " + options.address);
  try {
    // Lets the service start again while connections of its last run are still timing out.
    Tcp::acceptor acceptor(context, {address, options.port}, true);
    closeOnExec(acceptor.native_handle());
    return acceptor;
  } catch (const std::system_error& failure) {
    const std::string advice =
        failure.code() == asio::error::address_in_use
            ? "; stop the program that listens there, or configure the build with another port by "
              "-DORVIX_LOCAL_PORT"
            : "";
    throw std::runtime_error("cannot listen on port " + std::to_string(options.port) + ": " +
                             failure.code().message() + advice);
  }
}

}  // namespace

ListenerOptions listenerOptions(const std::filesystem::path& pki, std::uint16_t port,
                                const char* serverName) {
  ListenerOptions options;
  options.port = port;
  options.certificateFile = pki / "server.pem";
  options.keyFile = pki / "server.key";
  options.serverName = serverName;
  return options;
}

TlsListener::TlsListener(asio::io_context& context, ListenerOptions options, Handler handler)
    : options_(std::move(options)),
      handler_(std::move(handler)),
      tls_(makeContext(options_).release()),
      acceptor_(listenOn(context, options_)),
      pause_(context) {
  accept();
}

void TlsListener::accept() {
  acceptor_.async_accept([this](const asio::error_code& error, Tcp::socket socket) {
    if (error) {
      // There may be no descriptor left, until a connection ends.
      pause_.expires_after(RETRY_PAUSE);
      pause_.async_wait([this](const asio::error_code& /*none*/) { accept(); });
      return;
    }
    closeOnExec(socket.native_handle());
    asio::error_code ignored;  // The connection may be gone again.
    // Otherwise the delayed acknowledgement of the peer holds back each exchange for 40 ms.
    socket.set_option(Tcp::no_delay(true), ignored);
    serveConnection(std::move(socket), ++connections_, tls_, options_, handler_);
    accept();
  });
}

}  // namespace localservice
