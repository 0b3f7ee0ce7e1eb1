#include "service/signing_service.h"

#include <libgen.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "log/log.h"
#include "pkcs11-brivasign/module_state.h"
#include "service/base64.h"
#include "service/host_process.h"
#include "service/message_format.h"
#include "service/notification_command.h"
#include "service/reply.h"
#include "service/secure_channel.h"

namespace brivasign {
namespace {

constexpr std::size_t NOTIFICATION_MESSAGE_SIZE = 100;  // bytes, terminator included

// Writes `request` in one piece. Only the result 0 is a failure: a write that failed otherwise
// shows as an empty reply. The channel counts in int; what it cannot count is not sent.
bool putRequest(BIO* channel, const std::string& request) {
  return request.size() <= INT_MAX && BIO_puts(channel, request.c_str()) != 0;
}

// Formats the request for the pending signature and logs the path of the host's executable.
std::string describeRequest(const unsigned char* data, std::size_t dataLength, const char* host,
                            const char* machineId) {
  std::string challenge = encodeBase64(data, dataLength);
  char path[EXECUTABLE_PATH_SIZE] = {};
  readExecutablePath(path);
  writeLog(path);

  PssNames names = {};
  if (signPssParams != nullptr) names = pssNames(*signPssParams, dataLength);
  const SignatureRequest request = {
      .certificateId = static_cast<std::int32_t>(signCertificateId),
      .challenge = std::move(challenge),
      .processId = getpid(),
      .executableName = basename(path),
      .pss = signPssParams != nullptr ? &names : nullptr,
  };
  return formatSignatureRequest(request, host, machineId);
}

void showNotification() {
  const int result = std::system(NOTIFICATION_COMMAND);  // NOLINT(cert-env33-c): fixed command
  if (result >= 0) return;
  char message[NOTIFICATION_MESSAGE_SIZE];
  std::snprintf(message, sizeof message, "Problema ao exibir mensagem: %d\n", result);
  writeLog(message);
}

}  // namespace

std::int32_t sendSignatureRequest(const unsigned char* data, std::size_t dataLength,
                                  const char* host, const char* port, const char* machineId) {
  SslContextPtr context;
  BioPtr channel;
  if (!openSecureChannel(context, channel, host, port)) return 0;
  if (dataLength > MOST_ENCODED ||
      !putRequest(channel.get(), describeRequest(data, dataLength, host, machineId))) {
    writeLog("Erro BIO_puts");
    return 0;
  }
  const SignatureReply reply = interpretSignatureReply(readReply(channel.get(), true));
  if (reply.showsNotification) showNotification();
  return reply.requestNumber;
}

std::string querySignatureStatus(std::int32_t requestNumber, const char* host, const char* port,
                                 const char* machineId) {
  SslContextPtr context;
  BioPtr channel;
  if (!openSecureChannel(context, channel, host, port)) return {};
  if (!putRequest(channel.get(), formatStatusQuery(requestNumber, host, machineId))) {
    writeLog("Erro BIO_puts lendo desafio");
    return {};
  }
  return readReply(channel.get(), false);
}

}  // namespace brivasign
