#include "service/approval.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "log/log.h"
#include "service/reply.h"
#include "service/service_environment.h"

namespace brivasign {
namespace {

// Least time in microseconds from the start of one status query to the start of the next.
constexpr std::int32_t APPROVAL_POLL_INTERVAL_US = 2'000'000;

// Number of "AGUARDANDO" replies after which the wait is given up.
constexpr std::int32_t APPROVAL_WAITING_LIMIT = 20;

// Returns the microseconds from `start` to `end`, in wrapping 32-bit arithmetic.
std::int32_t elapsedMicroseconds(const timeval& start, const timeval& end) {
  const auto seconds = static_cast<std::uint32_t>(end.tv_sec - start.tv_sec);
  const auto microseconds = static_cast<std::uint32_t>(end.tv_usec - start.tv_usec);
  return static_cast<std::int32_t>(seconds * 1'000'000U + microseconds);
}

// Sleeps for what is left of the poll interval that began at `start`.
void waitForNextCycle(const timeval& start) {
  timeval now = {};
  gettimeofday(&now, nullptr);
  const std::int32_t elapsed = elapsedMicroseconds(start, now);
  if (elapsed < APPROVAL_POLL_INTERVAL_US) {
    usleep(static_cast<std::uint32_t>(APPROVAL_POLL_INTERVAL_US) -
           static_cast<std::uint32_t>(elapsed));
  }
}

// Queries the request `requestNumber` until the user has decided, the wait is over or a reply is
// unusable.
SignatureOutcome awaitApproval(std::int32_t requestNumber, const ServiceAccess& service) {
  timeval cycleStart = {};
  gettimeofday(&cycleStart, nullptr);
  std::int32_t waitingReplies = 1;
  for (;;) {
    StatusReply reply = interpretStatusReply(querySignatureStatus(requestNumber, service));
    switch (reply.approval) {
      case Approval::UNUSABLE:
        return {Decision::FAILED, {}};
      case Approval::MISTYPED:
        return {Decision::MISTYPED, {}};
      case Approval::REFUSED:
        return {Decision::REFUSED, {}};
      case Approval::ACCEPTED:
        return {Decision::ACCEPTED, std::move(reply.signature)};
      case Approval::WAITING:
        if (waitingReplies == APPROVAL_WAITING_LIMIT) {
          writeLog("Retornando CKR_FUNCTION_CANCELED depois de receber 20 vezes AGUARDANDO.");
          return {Decision::UNDECIDED, {}};
        }
        waitForNextCycle(cycleStart);
        ++waitingReplies;
        gettimeofday(&cycleStart, nullptr);
        break;
      case Approval::OTHER:
        // Neither paced nor counted: only a waiting service can make the user wait.
        break;
    }
  }
}

}  // namespace

SignatureOutcome requestApproval(const SignatureOrder& order, HostNameCheck hostNameCheck) {
  const std::int32_t index = readEnvironmentIndex();
  const std::string machineId = readMachineId(index);
  const ServiceEnvironment& environment = serviceEnvironments[static_cast<std::size_t>(index)];
  const ServiceAccess service = {.host = environment.host,
                                 .port = environment.port,
                                 .machineId = machineId.c_str(),
                                 .hostNameCheck = hostNameCheck};
  const SignatureReply reply = sendSignatureRequest(order, service);
  if (reply.isMistyped) return {Decision::MISTYPED, {}};
  if (reply.requestNumber == 0) {
    writeLog("Erro ao enviar pedido de assinatura.");
    return {Decision::FAILED, {}};
  }
  return awaitApproval(reply.requestNumber, service);
}

}  // namespace brivasign
