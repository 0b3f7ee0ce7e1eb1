#include <sys/resource.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <utility>

#include "exit_status.h"
#include "faults.h"
#include "options.h"
#include "phone.h"
#include "signer.h"
#include "signing_service.h"
#include "terminal.h"
#include "tls_listener.h"

using localservice::Approval;

namespace {

constexpr rlim_t MOST_DESCRIPTORS = 10'000;  // more than some systems allow is refused

// Each client takes a descriptor, and what a shell allows may be 256.
void allowManyClients() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, MOST_DESCRIPTORS));
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

void lookAtClockEverySecond(asio::steady_timer& timer, localservice::SigningService& service) {
  timer.expires_after(std::chrono::seconds(1));
  timer.async_wait([&](const asio::error_code& /*none*/) {
    service.lookAtClock();
    lookAtClockEverySecond(timer, service);
  });
}

// Ends the process when SIGINT or SIGTERM comes.
[[noreturn]] void run(const localservice::Options& options) {
  localservice::EventLog log(std::cout, std::cerr, options.asJson);
  localservice::Signer signer(options.pki / "users");
  const std::size_t keyCount = signer.keyCount();
  localservice::SigningService service(std::move(signer), options.service, log);
  auto listening = localservice::listenerOptions(options.pki, options.port);
  listening.stall = options.faults.stall;
  listening.stallEnding = options.faults.ending;
  listening.report = [&](std::size_t connection, const std::string& event,
                         const std::string& reason) {
    log.tell("connection", connection, event, {{"reason", reason}});
  };
  asio::io_context context;
  const localservice::TlsListener listener(
      context, listening,
      withFaults([&](const std::string& request,
                     std::size_t connection) { return service.handle(request, connection); },
                 options.faults, log));
  asio::signal_set signals(context, SIGINT, SIGTERM);
  signals.async_wait([&](const asio::error_code& /*none*/, int /*signal*/) { context.stop(); });
  asio::steady_timer timer(context);
  lookAtClockEverySecond(timer, service);

  if (options.service.approval.mode == Approval::Mode::PHONE) {
    log.tell("", 0, "phone", {{"page", decideOnPage(service)}});
  }
  if (options.service.approval.mode == Approval::Mode::ASK) {
    decideOnTerminal(service, log);
  }
  log.tell("", 0, "listening",
           {{"address", "https://127.0.0.1:" + std::to_string(listener.port())},
            {"keys", std::to_string(keyCount)}});
  context.run();
  // The threads by which a person decides still use what destructors would release.
  std::_Exit(EXIT_SUCCESS);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    localservice::Options options;
    if (const auto status = localservice::parseOptions({argv + 1, argv + argc}, options)) {
      return *status;
    }
    // Whoever reads the log may go.
    std::signal(SIGPIPE, SIG_IGN);
    allowManyClients();
    run(options);
  } catch (const std::exception& error) {
    std::cerr << "local-signing-service: " << error.what() << '\n';
    return tools::WRONG_USAGE;
  }
}
