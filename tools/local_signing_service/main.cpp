#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "faults.h"
#include "options.h"
#include "signer.h"
#include "signing_service.h"
#include "tls_listener.h"

using localservice::TlsListener;

namespace {

std::atomic<TlsListener*> runningListener{nullptr};
static_assert(std::atomic<TlsListener*>::is_always_lock_free);

extern "C" void stopRunningListener(int /*signal*/) {
  if (TlsListener* const listener = runningListener) {
    listener->stop();
  }
}

// Lets SIGINT and SIGTERM stop `listener` for as long as this object lives.
class StopOnSignals {
 public:
  explicit StopOnSignals(TlsListener& listener) {
    runningListener = &listener;
    struct sigaction action {};
    action.sa_handler = stopRunningListener;
    sigemptyset(&action.sa_mask);
    // Without SA_RESTART, so that waiting for a person's answer ends too.
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
  }
  StopOnSignals(const StopOnSignals&) = delete;
  StopOnSignals& operator=(const StopOnSignals&) = delete;
  ~StopOnSignals() { runningListener = nullptr; }
};

void run(const localservice::Options& options) {
  localservice::Signer signer(options.pki / "users");
  const std::size_t keyCount = signer.keyCount();
  localservice::SigningService service(std::move(signer), options.service, std::cin, std::cout);
  auto listening = localservice::listenerOptions(options.pki, options.port);
  listening.stall = options.faults.stall;
  listening.stallEnding = options.faults.ending;
  TlsListener listener(
      listening, withFaults([&](const std::string& request) { return service.handle(request); },
                            options.faults, std::cout));
  const StopOnSignals stopOnSignals(listener);
  std::cout << "listening on https://127.0.0.1:" << listener.port() << " with " << keyCount
            << " keys\n"
            << std::flush;
  listener.serve();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto options = localservice::parseOptions({argv + 1, argv + argc});
    if (options.help) {
      std::cout << localservice::usage();
    } else {
      run(options);
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "local-signing-service: " << error.what() << '\n';
    return 2;
  }
}
