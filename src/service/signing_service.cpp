#include "service/signing_service.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "log/log.h"
#include "service/base64.h"
#include "service/host_process.h"
#include "service/message_format.h"
#include "service/notification_command.h"
#include "service/secure_channel.h"

namespace brivasign {
namespace {

constexpr std::size_t NOTIFICATION_MESSAGE_SIZE = 100;  // bytes, terminator included

// Writes `request` in one piece. Only the result 0 is a failure: a write that failed otherwise
// shows as an empty reply. The channel counts in int; what it cannot count is not sent.
bool putRequest(BIO* channel, const std::string& request) {
  return request.size() <= INT_MAX && BIO_puts(channel, request.c_str()) != 0;
}

// Returns the last component of `path`, as the system's basename does, which on macOS keeps its
// result where all threads write it. A path that is not known is ".".
const char* fileNameOf(const char* path) {
  if (*path == '\0') return ".";
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// Formats the request for `order` and logs the path of the host's executable.
std::string describeRequest(const SignatureOrder& order, const ServiceAccess& service) {
  std::string challenge = encodeBase64(order.data, order.dataLength);
  char path[EXECUTABLE_PATH_SIZE] = {};
  readExecutablePath(path);
  writeLog(path);

  PssNames names = {};
  if (order.pss != nullptr) names = pssNames(*order.pss, order.dataLength);
  const SignatureRequest request = {
      .certificateId = static_cast<std::int32_t>(order.certificateId),
      .challenge = std::move(challenge),
      .processId = getpid(),
      .executableName = fileNameOf(path),
      .pss = order.pss != nullptr ? &names : nullptr,
  };
  return formatSignatureRequest(request, service.host, service.machineId);
}

void showNotification() {
  const int result = std::system(NOTIFICATION_COMMAND);  // NOLINT(cert-env33-c): fixed command
  if (result >= 0) return;
  char message[NOTIFICATION_MESSAGE_SIZE];
  std::snprintf(message, sizeof message, "Problema ao exibir mensagem: %d\n", result);
  writeLog(message);
}

}  // namespace

SignatureReply sendSignatureRequest(const SignatureOrder& order, const ServiceAccess& service) {
  SslContextPtr context;
  BioPtr channel;
  if (!openSecureChannel(context, channel, service.host, service.port, service.hostNameCheck)) {
    return {};
  }
  if (order.dataLength > MOST_ENCODED ||
      !putRequest(channel.get(), describeRequest(order, service))) {
    writeLog("Erro BIO_puts");
    return {};
  }
  const SignatureReply reply = interpretSignatureReply(readReply(channel.get(), true));
  if (reply.showsNotification) showNotification();
  return reply;
}

std::string querySignatureStatus(std::int32_t requestNumber, const ServiceAccess& service) {
  SslContextPtr context;
  BioPtr channel;
  if (!openSecureChannel(context, channel, service.host, service.port, service.hostNameCheck)) {
    return {};
  }
  if (!putRequest(channel.get(),
                  formatStatusQuery(requestNumber, service.host, service.machineId))) {
    writeLog("Erro BIO_puts lendo desafio");
    return {};
  }
  return readReply(channel.get(), false);
}

}  // namespace brivasign
