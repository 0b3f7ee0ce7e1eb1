#include "tls_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "tls_connection.h"

namespace localservice {
namespace {

// Keeps a write to a closed connection from killing the process. The disposition of the signal
// belongs to the whole process and stays as it is: only this thread blocks it.
void blockSigpipe() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

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

void enable(int socket, int level, int option) {
  const int enabled = 1;
  ::setsockopt(socket, level, option, &enabled, sizeof enabled);
}

FileDescriptor listenOn(const ListenerOptions& options) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(options.port);
  require(::inet_pton(AF_INET, options.address.c_str(), &address.sin_addr) == 1,
          "there is no address " + options.address);
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
  // Lets the service start again while connections of its last run are still timing out.
  enable(socket.get(), SOL_SOCKET, SO_REUSEADDR);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket.get(), SOMAXCONN) != 0) {
    const int error = errno;
    const std::string advice =
        error == EADDRINUSE
            ? "; stop the program that listens there, or configure the build with another port by "
              "-DORVIX_LOCAL_PORT"
            : "";
    throw std::runtime_error("cannot listen on port " + std::to_string(options.port) + ": " +
                             std::generic_category().message(error) + advice);
  }
  configureDescriptor(socket.get());
  return socket;
}

std::uint16_t boundPort(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot tell the port");
  }
  return ntohs(address.sin_port);
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

TlsListener::TlsListener(const ListenerOptions& options, Handler handler)
    : handler_(std::move(handler)),
      stall_(options.stall),
      stallEnding_(options.stallEnding),
      context_(makeContext(options)),
      socket_(listenOn(options)),
      port_(boundPort(socket_.get())) {}

void TlsListener::serve() {
  blockSigpipe();
  constexpr auto NEVER = StopPipe::Clock::time_point::max();
  while (stopPipe_.wait(socket_.get(), POLLIN, NEVER) == StopPipe::Event::READY) {
    const FileDescriptor connection(::accept(socket_.get(), nullptr, nullptr));
    if (connection.get() < 0) {
      // The connection may be gone again.
      if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        throw std::system_error(errno, std::generic_category(), "cannot accept connections");
      }
      continue;
    }
    configureDescriptor(connection.get());
    // Otherwise the delayed acknowledgement of the peer holds back each exchange for 40 ms.
    enable(connection.get(), IPPROTO_TCP, TCP_NODELAY);
#ifdef SO_NOSIGPIPE
    // Where this exists, SIGPIPE may go to any thread of the process.
    enable(connection.get(), SOL_SOCKET, SO_NOSIGPIPE);
#endif
    if (stall_) {
      stallConnection(connection, stopPipe_, *stall_, stallEnding_);
    } else {
      serveConnection(context_.get(), connection, stopPipe_, handler_);
    }
  }
}

void TlsListener::stop() noexcept { stopPipe_.stop(); }

}  // namespace localservice
