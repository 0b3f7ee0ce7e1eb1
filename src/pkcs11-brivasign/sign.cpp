#include <sys/time.h>
#include <unistd.h>

#include <cstdint>

#include "log/log.h"
#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/host_memory.h"
#include "pkcs11-brivasign/mechanisms.h"
#include "pkcs11-brivasign/module_state.h"
#include "pkcs11-brivasign/object_handle.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11-brivasign/value_log.h"
#include "pkcs11.h"
#include "service/base64.h"
#include "service/reply.h"
#include "service/service_environment.h"
#include "service/signing_service.h"

namespace brivasign {
namespace {

// Always reported, whatever the service sends: its keys are 2048-bit RSA keys. Bytes.
constexpr CK_ULONG SIGNATURE_LENGTH = 256;

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
// unusable, and decodes an accepted signature into `signature`, all of it, whatever room there is.
// Returns CKR_OK, CKR_FUNCTION_CANCELED or CKR_FUNCTION_FAILED.
CK_RV awaitApproval(std::int32_t requestNumber, const ServiceEnvironment& environment,
                    const std::string& machineId, CK_BYTE_PTR signature) {
  timeval cycleStart = {};
  gettimeofday(&cycleStart, nullptr);
  std::int32_t waitingReplies = 1;
  for (;;) {
    const StatusReply reply = interpretStatusReply(
        querySignatureStatus(requestNumber, environment.host, environment.port, machineId.c_str()));
    switch (reply.approval) {
      case Approval::UNUSABLE:
        return CKR_FUNCTION_FAILED;
      case Approval::REFUSED:
        return CKR_FUNCTION_CANCELED;
      case Approval::ACCEPTED:
        decodeBase64(reply.signature.c_str(), signature);
        return CKR_OK;
      case Approval::WAITING:
        if (waitingReplies == APPROVAL_WAITING_LIMIT) {
          writeLog("Retornando CKR_FUNCTION_CANCELED depois de receber 20 vezes AGUARDANDO.");
          return CKR_FUNCTION_CANCELED;
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

// Has the service sign `dataLen` bytes at `data` into `signature`.
CK_RV signAtService(const CK_BYTE* data, CK_ULONG dataLen, CK_BYTE_PTR signature) {
  const std::int32_t index = readEnvironmentIndex();
  const std::string machineId = readMachineId(index);
  const ServiceEnvironment& environment = serviceEnvironments[static_cast<std::size_t>(index)];
  const std::int32_t requestNumber =
      sendSignatureRequest(data, dataLen, environment.host, environment.port, machineId.c_str());
  if (requestNumber == 0) {
    writeLog("Erro ao enviar pedido de assinatura.");
    return CKR_FUNCTION_FAILED;
  }
  return awaitApproval(requestNumber, environment, machineId, signature);
}

// Tests mechanism and key in the mechanism's own order: CKM_RSA_PKCS its parameter before the key,
// CKM_RSA_PKCS_PSS the key alone, since its parameters are the service's matter.
CK_RV checkMechanismAndKey(const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE hKey) {
  const CK_RV keyResult = require(isPrivateKeyHandle(hKey), CKR_KEY_TYPE_INCONSISTENT);
  switch (mechanism.mechanism) {
    case CKM_RSA_PKCS_PSS:
      return keyResult;
    case CKM_RSA_PKCS:
      return firstRefusal(checkMechanism(&mechanism, {CKM_RSA_PKCS}), keyResult);
    default:
      logValue("Mecanismo invalido: %#x", mechanism.mechanism);
      return CKR_MECHANISM_INVALID;
  }
}

}  // namespace
}  // namespace brivasign

using namespace brivasign;

// The key is not looked up, and no login is asked for: the user approves each signature.
CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                 CK_OBJECT_HANDLE hKey) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), operation(rules::SIGN_INIT), checkSession(hSession),
                       arguments(pMechanism != nullptr))) {
    return refusal;
  }
  signPssParams = nullptr;
  if (const CK_RV refusal = checkMechanismAndKey(*pMechanism, hKey)) return refusal;
  signCertificateId = certificateIdOf(hKey);
  // Null for CKM_RSA_PKCS, which has no parameter.
  signPssParams = static_cast<const CK_RSA_PKCS_PSS_PARAMS*>(pMechanism->pParameter);
  return advance(rules::SIGN_INIT);
}

// The caller's length is never read: the buffer must hold SIGNATURE_LENGTH bytes. A length query
// drops the PSS parameters, so that the signature that follows it is requested without them.
CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) noexcept {
  if (const CK_RV refusal = firstRefusal(acceptBytes(rules::SIGN, hSession, pData, ulDataLen),
                                         arguments(pulSignatureLen != nullptr))) {
    return refusal;
  }
  CK_RV result = CKR_OK;
  if (pSignature != nullptr) {
    result = orHostMemory([&] { return signAtService(pData, ulDataLen, pSignature); });
    activeOperation = OP_NONE;
  }
  *pulSignatureLen = SIGNATURE_LENGTH;
  signPssParams = nullptr;
  return result;
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) noexcept {
  return acceptBytes(rules::SIGN_UPDATE, hSession, pPart, ulPartLen);
}

// The service is not contacted: it signs in one part only.
CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                  CK_ULONG_PTR pulSignatureLen) noexcept {
  signPssParams = nullptr;
  if (const CK_RV refusal =
          firstRefusal(initialized(), operation(rules::SIGN_FINAL), checkSession(hSession),
                       arguments(pulSignatureLen != nullptr))) {
    return refusal;
  }
  if (const CK_RV refusal = putFixedValue(MOCK_SIGNATURE, pSignature, pulSignatureLen)) {
    return refusal;
  }
  return pSignature == nullptr ? CKR_OK : advance(rules::SIGN_FINAL);
}
