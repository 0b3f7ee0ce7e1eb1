#include "tls_connection.h"

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/ssl/error.hpp>
#include <asio/ssl/stream.hpp>
#include <memory>
#include <string>
#include <utility>

#include "http_request.h"

namespace localservice {
namespace {

using Tcp = asio::ip::tcp;

constexpr std::chrono::seconds IDLE_LIMIT{30};
constexpr std::chrono::seconds LINGER_LIMIT{1};
// The most that one TLS record can hold.
constexpr std::size_t BLOCK_LENGTH = 16384;

// It lives for as long as one of its operations is under way.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Tcp::socket socket, std::size_t number, asio::ssl::context& tls,
             const ListenerOptions& options, const Handler& handler)
      : tls_(std::move(socket), tls),
        timer_(tls_.get_executor()),
        number_(number),
        options_(options),
        handler_(handler) {}

 private:
  Tcp::socket& tcp() { return tls_.next_layer(); }

  // Returns what is to happen when the operation that is being started is done: `step`, given the
  // number of bytes, or the connection's end if it failed or took too long.
  template <typename Step>
  auto then(Step step) {
    cancelAfter(IDLE_LIMIT);
    return [self = shared_from_this(), step](const asio::error_code& error, std::size_t count = 0) {
      self->timer_.cancel();
      error ? self->drop(error) : step(count);
    };
  }

  // After so long, what waits for the peer fails.
  void cancelAfter(std::chrono::seconds limit) {
    timer_.expires_after(limit);
    timer_.async_wait([self = shared_from_this()](const asio::error_code& error) {
      // It may have been set anew since it went off.
      if (!error && self->timer_.expiry() <= asio::steady_timer::clock_type::now()) {
        asio::error_code ignored;
        self->tcp().cancel(ignored);
      }
    });
  }

  template <typename Step>
  void pause(std::chrono::milliseconds time, Step step) {
    timer_.expires_after(time);
    timer_.async_wait(
        [self = shared_from_this(), step](const asio::error_code& /*none*/) { step(); });
  }

  void tell(const std::string& event, const std::string& reason) {
    options_.report(number_, event, reason);
  }

  void drop(const asio::error_code& error) {
    const bool isLate = error == asio::error::operation_aborted;
    const bool isClosed = error == asio::error::eof || error == asio::ssl::error::stream_truncated;
    drop(isLate     ? "nothing happened for " + std::to_string(IDLE_LIMIT.count()) + " s"
         : isClosed ? "the client closed it"
                    : error.message());
  }

  void drop(const std::string& reason) {
    tell("dropped", reason);
    endTcp(Ending::CLOSE);
  }

  void stall() {
    tell("stalled", "--stall " + std::to_string(options_.stall->count()));
    pause(*options_.stall, [this] { endTcp(options_.stallEnding); });
  }

  // Reads one request and whatever stands behind its body in the same TLS record.
  void read() {
    tls_.async_read_some(
        asio::buffer(block_), then([this](std::size_t count) {
          request_.append(block_.data(), count);
          const std::size_t length = requestLength(request_).value_or(request_.size() + 1);
          // One that is too long is answered as one that is cut.
          if (length <= MAX_REQUEST_LENGTH &&
              (request_.size() < length || SSL_pending(tls_.native_handle()) > 0)) {
            read();
          } else {
            reply_ = handler_(request_, number_);
            reply_.closeAfter = std::min(reply_.closeAfter, reply_.bytes.size());
            send();
          }
        }));
  }

  void send() {
    if (sent_ == reply_.closeAfter) {
      end();
    } else if (reply_.byteDelay) {
      pause(*reply_.byteDelay, [this] { write(1); });
    } else {
      write(reply_.closeAfter - sent_);
    }
  }

  void write(std::size_t length) {
    tls_.async_write_some(asio::buffer(reply_.bytes.data() + sent_, length),
                          then([this](std::size_t count) {
                            sent_ += count;
                            send();
                          }));
  }

  void end() {
    if (sent_ < reply_.bytes.size() || reply_.ending != Ending::CLOSE_NOTIFY) {
      tell("dropped", std::string("as asked, by a ") +
                          (reply_.ending == Ending::RESET ? "reset" : "close") + " after byte " +
                          std::to_string(sent_));
    }
    if (reply_.ending != Ending::CLOSE_NOTIFY) {
      endTcp(reply_.ending);
      return;
    }
    // Otherwise the peer's close_notify would be waited for.
    SSL_set_shutdown(tls_.native_handle(), SSL_RECEIVED_SHUTDOWN);
    cancelAfter(LINGER_LIMIT);
    tls_.async_shutdown([self = shared_from_this()](const asio::error_code& /*all the same*/) {
      self->endTcp(Ending::CLOSE);
    });
  }

  // Ends the sending, or resets the connection.
  void endTcp(Ending ending) {
    asio::error_code ignored;
    if (ending == Ending::RESET) {
      tcp().set_option(Tcp::socket::linger(true, 0), ignored);
      tcp().close(ignored);
      return;
    }
    // Closing a socket with unread bytes would reset the connection, and a reset can overtake the
    // last bytes sent. So this side only ends its sending and gives the peer time to do the same.
    tcp().shutdown(Tcp::socket::shutdown_send, ignored);
    cancelAfter(LINGER_LIMIT);
    discard();
  }

  void discard() {
    tcp().async_read_some(
        asio::buffer(block_),
        [self = shared_from_this()](const asio::error_code& error, std::size_t /*count*/) {
          error ? static_cast<void>(self->timer_.cancel()) : self->discard();
        });
  }

 public:
  void start() {
    if (options_.stall) {
      tcp().async_wait(Tcp::socket::wait_read, then([this](std::size_t /*count*/) { stall(); }));
    } else {
      tls_.async_handshake(asio::ssl::stream_base::server,
                           then([this](std::size_t /*count*/) { read(); }));
    }
  }

 private:
  asio::ssl::stream<Tcp::socket> tls_;
  asio::steady_timer timer_;
  const std::size_t number_;
  const ListenerOptions& options_;
  const Handler& handler_;
  std::array<char, BLOCK_LENGTH> block_{};
  std::string request_;
  Reply reply_;
  std::size_t sent_ = 0;
};

}  // namespace

void serveConnection(Tcp::socket socket, std::size_t number, asio::ssl::context& tls,
                     const ListenerOptions& options, const Handler& handler) {
  std::make_shared<Connection>(std::move(socket), number, tls, options, handler)->start();
}

}  // namespace localservice
