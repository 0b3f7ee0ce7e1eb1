#pragma once

#include <openssl/ssl.h>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ssl/context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "reply.h"

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
  // Told of each connection that is stalled, or ends without all of a reply and close_notify: its
  // number, what happened and why.
  std::function<void(std::size_t connection, const std::string& event, const std::string& reason)>
      report = [](auto&&...) {};
};

// Returns options for a service at `port` with the identity in `pki`, a folder of make-local-pki.
ListenerOptions listenerOptions(const std::filesystem::path& pki, std::uint16_t port,
                                const char* serverName = nullptr);

// A TLS server for any number of connections at once, each with one request, that works while
// `context` runs, on one thread. No connection, whatever it does, ends it or holds up another one;
// an exception of the handler leaves the run.
class TlsListener {
 public:
  // Listens from here on: clients can connect before `context` runs, which must outlive this.
  // Throws std::runtime_error with a sentence that says which option does not work.
  TlsListener(asio::io_context& context, ListenerOptions options, Handler handler);
  TlsListener(const TlsListener&) = delete;
  TlsListener& operator=(const TlsListener&) = delete;

  // The port listened on.
  [[nodiscard]] std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

 private:
  void accept();

  ListenerOptions options_;
  Handler handler_;
  asio::ssl::context tls_;
  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer pause_;
  std::size_t connections_ = 0;
};

}  // namespace localservice
