#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tls_listener.h"

namespace localservice {

// A TlsListener that serves on a thread of this process for as long as the object lives. Nothing
// but a handler that is running delays its end.
class BackgroundListener {
 public:
  // Throws what TlsListener throws.
  BackgroundListener(const ListenerOptions& options,
                     std::function<Reply(const std::string& request)> handler)
      : listener_(
            context_, options,
            [handler = std::move(handler)](const std::string& request, std::size_t /*connection*/) {
              return handler(request);
            }),
        thread_([this] { context_.run(); }) {}
  BackgroundListener(const BackgroundListener&) = delete;
  BackgroundListener& operator=(const BackgroundListener&) = delete;
  ~BackgroundListener() {
    context_.stop();
    thread_.join();
  }

 private:
  asio::io_context context_;
  TlsListener listener_;
  std::thread thread_;
};

}  // namespace localservice
