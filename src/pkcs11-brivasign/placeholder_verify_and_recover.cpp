#include <algorithm>
#include <initializer_list>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/mechanisms.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11.h"

using namespace brivasign;

namespace {

// The four functions that start an operation on one RSA key of the imitation.
CK_RV startWithKey(const OperationRule& rule, CK_SESSION_HANDLE hSession,
                   const CK_MECHANISM* mechanism, std::initializer_list<CK_MECHANISM_TYPE> accepted,
                   CK_OBJECT_HANDLE hKey, CK_OBJECT_HANDLE expectedKey) {
  if (const CK_RV refusal = firstRefusal(initialized(), operation(rule), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal = firstRefusal(checkMechanism(mechanism, accepted),
                                         require(hKey == expectedKey, CKR_KEY_TYPE_INCONSISTENT))) {
    return refusal;
  }
  return advance(rule);
}

// Compares a signature that is there with the only one that verifies and moves the state as `rule`
// says; a failed verification leaves the operation active.
CK_RV verify(const OperationRule& rule, const CK_BYTE* signature, CK_ULONG signatureLen) {
  if (signatureLen != MOCK_SIGNATURE.size()) return CKR_SIGNATURE_LEN_RANGE;
  if (!std::equal(MOCK_SIGNATURE.begin(), MOCK_SIGNATURE.end(), signature)) {
    return CKR_SIGNATURE_INVALID;
  }
  return advance(rule);
}

}  // namespace

CK_RV C_VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                   CK_OBJECT_HANDLE hKey) noexcept {
  return startWithKey(rules::VERIFY_INIT, hSession, pMechanism, {CKM_RSA_PKCS, CKM_SHA1_RSA_PKCS},
                      hKey, MOCK_PUBLIC_KEY);
}

CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) noexcept {
  if (const CK_RV refusal = firstRefusal(acceptBytes(rules::VERIFY, hSession, pData, ulDataLen),
                                         arguments(pSignature != nullptr && ulSignatureLen != 0))) {
    return refusal;
  }
  return verify(rules::VERIFY, pSignature, ulSignatureLen);
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) noexcept {
  return acceptBytes(rules::VERIFY_UPDATE, hSession, pPart, ulPartLen);
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                    CK_ULONG ulSignatureLen) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), operation(rules::VERIFY_FINAL), checkSession(hSession),
                       arguments(pSignature != nullptr && ulSignatureLen != 0))) {
    return refusal;
  }
  return verify(rules::VERIFY_FINAL, pSignature, ulSignatureLen);
}

CK_RV C_SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                        CK_OBJECT_HANDLE hKey) noexcept {
  return startWithKey(rules::SIGN_RECOVER_INIT, hSession, pMechanism, {CKM_RSA_PKCS}, hKey,
                      MOCK_PRIVATE_KEY);
}

CK_RV C_SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                    CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) noexcept {
  return transformBytes(rules::SIGN_RECOVER, hSession, pData, ulDataLen, pSignature,
                        pulSignatureLen);
}

CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                          CK_OBJECT_HANDLE hKey) noexcept {
  return startWithKey(rules::VERIFY_RECOVER_INIT, hSession, pMechanism, {CKM_RSA_PKCS}, hKey,
                      MOCK_PUBLIC_KEY);
}

CK_RV C_VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen,
                      CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) noexcept {
  return transformBytes(rules::VERIFY_RECOVER, hSession, pSignature, ulSignatureLen, pData,
                        pulDataLen);
}
