#pragma once

#include <thread>
#include <utility>

#include "tls_listener.h"

namespace localservice {

// A TlsListener that serves on a thread of this process for as long as the object lives.
class BackgroundListener {
 public:
  // Throws what TlsListener throws.
  BackgroundListener(const ListenerOptions& options, Handler handler)
      : listener_(options, std::move(handler)), thread_([this] { listener_.serve(); }) {}
  BackgroundListener(const BackgroundListener&) = delete;
  BackgroundListener& operator=(const BackgroundListener&) = delete;
  ~BackgroundListener() {
    listener_.stop();
    thread_.join();
  }

 private:
  TlsListener listener_;
  std::thread thread_;
};

}  // namespace localservice
