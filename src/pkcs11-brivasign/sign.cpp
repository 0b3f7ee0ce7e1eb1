#include "certcache/object_handle.h"
#include "host_memory.h"
#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/mechanisms.h"
#include "pkcs11-brivasign/module_state.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11-brivasign/value_log.h"
#include "pkcs11.h"
#include "service/approval.h"
#include "service/base64.h"
#include "service/end_process.h"

namespace brivasign {
namespace {

// Always reported, whatever the service sends: its keys are 2048-bit RSA keys. Bytes.
constexpr CK_ULONG SIGNATURE_LENGTH = 256;

// Has the service sign `dataLen` bytes at `data` with the pending signature's key into `signature`,
// all that comes, whatever room there is.
CK_RV signAtService(const CK_BYTE* data, CK_ULONG dataLen, CK_BYTE_PTR signature) {
  const SignatureOutcome outcome = requestApproval({.data = data,
                                                    .dataLength = dataLen,
                                                    .certificateId = signCertificateId,
                                                    .pss = signPssParams},
                                                   HostNameCheck::NONE);
  switch (outcome.decision) {
    case Decision::ACCEPTED:
      decodeBase64(outcome.signature.c_str(), signature);
      return CKR_OK;
    case Decision::REFUSED:
    case Decision::UNDECIDED:
      return CKR_FUNCTION_CANCELED;
    case Decision::FAILED:
      return CKR_FUNCTION_FAILED;
    case Decision::MISTYPED:
      break;
  }
  // Nothing that such a service says can be trusted.
  endProcess(__FILE_NAME__, __LINE__, "outcome.decision != Decision::MISTYPED");
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
