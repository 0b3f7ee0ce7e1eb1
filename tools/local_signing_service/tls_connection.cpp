#include "tls_connection.h"

#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <string>

#include "http_request.h"
#include "private_key.h"

namespace localservice {
namespace {

using Clock = StopPipe::Clock;
using Event = StopPipe::Event;

// Connections are served one by one, so a client that says nothing must not keep the others out.
constexpr std::chrono::seconds IDLE_LIMIT{30};
constexpr std::chrono::seconds LINGER_LIMIT{1};
// The most that one TLS record can hold.
constexpr std::size_t BLOCK_LENGTH = 16384;

// Ends the sending, or lets the closing of `socket` reset the connection.
void endTcp(int socket, const StopPipe& stopPipe, Ending ending) {
  if (ending == Ending::RESET) {
    const linger atOnce{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    return;
  }
  // Closing a socket with unread bytes would reset the connection, and a reset can overtake the
  // last bytes sent. So this side only ends its sending and gives the peer time to do the same.
  ::shutdown(socket, SHUT_WR);
  std::array<char, BLOCK_LENGTH> discarded{};
  const auto deadline = Clock::now() + LINGER_LIMIT;
  while (stopPipe.wait(socket, POLLIN, deadline) == Event::READY &&
         ::recv(socket, discarded.data(), discarded.size(), 0) > 0) {
  }
}

class Connection {
 public:
  Connection(SSL_CTX* context, int socket, const StopPipe& stopPipe)
      : ssl_(SSL_new(context)), socket_(socket), stopPipe_(stopPipe) {
    if (!ssl_ || SSL_set_fd(ssl_.get(), socket_) != 1) {
      throw std::bad_alloc();
    }
    SSL_set_accept_state(ssl_.get());
  }

  // Reads one request and whatever stands behind its body in the same TLS record; the first read
  // does the handshake as well.
  std::optional<std::string> readRequest() {
    std::string received;
    for (;;) {
      std::array<char, BLOCK_LENGTH> block{};
      std::size_t count = 0;
      if (!complete(
              [&](SSL* ssl) { return SSL_read_ex(ssl, block.data(), block.size(), &count); })) {
        return std::nullopt;
      }
      received.append(block.data(), count);
      const std::size_t length = requestLength(received).value_or(received.size() + 1);
      if (length > MAX_REQUEST_LENGTH) {
        return std::nullopt;
      }
      if (received.size() >= length && SSL_pending(ssl_.get()) == 0) {
        return received;
      }
    }
  }

  void send(const Reply& reply) {
    const std::size_t length = std::min(reply.closeAfter, reply.bytes.size());
    if (!reply.byteDelay) {
      write(reply.bytes.data(), length);
      return;
    }
    for (std::size_t at = 0; at < length; ++at) {
      const bool paused = stopPipe_.wait(-1, 0, Clock::now() + *reply.byteDelay) == Event::EXPIRED;
      if (!paused || !write(reply.bytes.data() + at, 1)) {
        return;
      }
    }
  }

  void sendCloseNotify() {
    // 0 means sent but not yet answered by the peer, which is all that is needed.
    complete([](SSL* ssl) {
      const int result = SSL_shutdown(ssl);
      return result == 0 ? 1 : result;
    });
  }

 private:
  // Repeats a non-blocking TLS operation, which returns 1 when done, for as long as it only has to
  // wait for the peer. Returns false when it failed, or waited too long, or must stop.
  template <typename Operation>
  bool complete(Operation operation) {
    for (;;) {
      ERR_clear_error();
      const int result = operation(ssl_.get());
      if (result > 0) {
        return true;
      }
      const int reason = SSL_get_error(ssl_.get(), result);
      if (reason != SSL_ERROR_WANT_READ && reason != SSL_ERROR_WANT_WRITE) {
        return false;
      }
      const short events = reason == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
      if (stopPipe_.wait(socket_, events, Clock::now() + IDLE_LIMIT) != Event::READY) {
        return false;
      }
    }
  }

  bool write(const char* bytes, std::size_t length) {
    std::size_t written = 0;
    return length == 0 ||
           complete([&](SSL* ssl) { return SSL_write_ex(ssl, bytes, length, &written); });
  }

  OpensslHandle<SSL, SSL_free> ssl_;
  int socket_;
  const StopPipe& stopPipe_;
};

}  // namespace

void serveConnection(SSL_CTX* context, const FileDescriptor& socket, const StopPipe& stopPipe,
                     const Handler& handler) {
  Connection connection(context, socket.get(), stopPipe);
  Ending ending = Ending::CLOSE;
  if (const auto request = connection.readRequest()) {
    const Reply reply = handler(*request);
    connection.send(reply);
    ending = reply.ending;
  }
  if (ending == Ending::CLOSE_NOTIFY) {
    connection.sendCloseNotify();
  }
  endTcp(socket.get(), stopPipe, ending);
  ERR_clear_error();
}

void stallConnection(const FileDescriptor& socket, const StopPipe& stopPipe,
                     std::chrono::milliseconds time, Ending ending) {
  if (stopPipe.wait(socket.get(), POLLIN, Clock::now() + IDLE_LIMIT) == Event::READY &&
      stopPipe.wait(-1, 0, Clock::now() + time) != Event::STOPPED) {
    endTcp(socket.get(), stopPipe, ending);
  }
}

}  // namespace localservice
