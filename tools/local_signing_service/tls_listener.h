#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "private_key.h"
#include "reply.h"
#include "stop_pipe.h"

namespace localservice {

struct ListenerOptions {
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;       // 0: any free one
  std::string certificateFile;  // PEM chain, leaf first
  std::string keyFile;          // PEM
  int minimumVersion = TLS1_2_VERSION;
  int maximumVersion = TLS1_2_VERSION;
  std::string cipherList;  // empty: the library's default
  int securityLevel = 2;   // of OpenSSL; TLS 1.1 and SHA-1 need 0
  // If set, a client that does not ask for the server by this name is refused.
  const char* serverName = nullptr;
  // If set, no handshake is answered: a connection in which one begins ends after so long.
  std::optional<std::chrono::milliseconds> stall;
  Ending stallEnding = Ending::CLOSE;
};

// Returns options for a service at `port` with the identity in `pki`, a folder of make-local-pki.
ListenerOptions listenerOptions(const std::filesystem::path& pki, std::uint16_t port,
                                const char* serverName = nullptr);

// A TLS server that serves one connection, with one request, at a time.
class TlsListener {
 public:
  // Listens from here on: clients can connect before serve() runs. Throws std::runtime_error with a
  // sentence that says which option does not work.
  TlsListener(const ListenerOptions& options, Handler handler);

  // Accepts and answers connections one after another until stop(). A connection that fails does
  // not end it. An exception of the handler, or of a failing system call, does. Blocks SIGPIPE in
  // the calling thread for good.
  void serve();

  // Ends serve(), a running or a later one, for good and promptly: waiting, reading, sending. Only
  // a handler that is running is left to return. Any thread or a signal handler may call it.
  void stop() noexcept;

  // The port listened on.
  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

 private:
  Handler handler_;
  std::optional<std::chrono::milliseconds> stall_;
  Ending stallEnding_;
  OpensslHandle<SSL_CTX, SSL_CTX_free> context_;
  StopPipe stopPipe_;
  FileDescriptor socket_;
  std::uint16_t port_ = 0;
};

}  // namespace localservice
