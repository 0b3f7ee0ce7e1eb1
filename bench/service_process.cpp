#include "service_process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>

#include "local_signing_service/background_listener.h"
#include "local_signing_service/ports.h"
#include "require.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

// Without a notification, which would measure the shell.
localservice::Reply approve(const std::string& request) {
  const std::string body =
      request.starts_with("GET")
          ? R"({"status":"ACEITO","desafioAssinado":")" + std::string(342, 'A') + R"(=="})"
          : R"({"id":1,"notificacaoEnviada":false})";
  return {.bytes =
              "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n" +
              body};
}

localservice::ListenerOptions options(const fs::path& pki) {
  return localservice::listenerOptions(pki, localservice::PRODUCTION_PORT);
}

}  // namespace

std::vector<std::string> recordSignature(const fs::path& pki, Token& token, CK_OBJECT_HANDLE key) {
  std::vector<std::string> requests;
  {
    const localservice::BackgroundListener service(options(pki), [&](const std::string& request) {
      requests.push_back(request);
      return approve(request);
    });
    token.sign(key);
  }
  require(requests.size() == 2, "a signature does not take two exchanges");
  return requests;
}

ServiceProcess::ServiceProcess(const fs::path& pki) {
  asio::io_context context;
  const localservice::TlsListener listener(
      context, options(pki),
      [](const std::string& request, std::size_t /*connection*/) { return approve(request); });
  process_ = fork();
  require(process_ >= 0, "the local service cannot be started");
  if (process_ != 0) return;
  // It must not outlive a benchmark that is interrupted.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    context.run();
  } catch (const std::exception&) {
    std::_Exit(EXIT_FAILURE);
  }
  std::_Exit(EXIT_SUCCESS);
}

ServiceProcess::~ServiceProcess() {
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

}  // namespace bench
