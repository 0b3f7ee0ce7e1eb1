#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/mechanisms.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11.h"

namespace brivasign {
namespace {

constexpr CK_BYTE BYTE_MASK = 0xAB;

// C_EncryptInit and C_DecryptInit: alike but for their states and the key of the RSA mechanisms.
CK_RV startCipher(const OperationRule& rule, CK_SESSION_HANDLE hSession,
                  const CK_MECHANISM* mechanism, CK_OBJECT_HANDLE hKey, CK_OBJECT_HANDLE rsaKey) {
  if (const CK_RV refusal = firstRefusal(initialized(), operation(rule), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal =
          checkMechanism(mechanism, {CKM_RSA_PKCS, CKM_RSA_PKCS_OAEP, CKM_DES3_CBC, CKM_AES_CBC})) {
    return refusal;
  }
  const bool isRsa =
      mechanism->mechanism == CKM_RSA_PKCS || mechanism->mechanism == CKM_RSA_PKCS_OAEP;
  if (hKey != (isRsa ? rsaKey : MOCK_SECRET_KEY)) return CKR_KEY_TYPE_INCONSISTENT;
  return advance(rule);
}

// C_EncryptFinal and C_DecryptFinal: no bytes are ever left over, so a buffer of any length will
// do, but only a call with a buffer ends the operation.
CK_RV finishCipher(const OperationRule& rule, CK_SESSION_HANDLE hSession, const CK_BYTE* lastPart,
                   CK_ULONG_PTR lastPartLen) {
  if (const CK_RV refusal = firstRefusal(initialized(), operation(rule), checkSession(hSession),
                                         arguments(lastPartLen != nullptr))) {
    return refusal;
  }
  *lastPartLen = 0;
  return lastPart == nullptr ? CKR_OK : advance(rule);
}

}  // namespace

CK_RV transformBytes(const OperationRule& rule, CK_SESSION_HANDLE hSession, const CK_BYTE* input,
                     CK_ULONG inputLen, CK_BYTE_PTR output, CK_ULONG_PTR outputLen) {
  if (const CK_RV refusal =
          firstRefusal(initialized(), operation(rule), checkSession(hSession),
                       arguments(input != nullptr && inputLen != 0 && outputLen != nullptr))) {
    return refusal;
  }
  if (output != nullptr) {
    if (*outputLen < inputLen) return CKR_BUFFER_TOO_SMALL;
    for (CK_ULONG i = 0; i < inputLen; ++i) output[i] = input[i] ^ BYTE_MASK;
    if (const CK_RV failure = advance(rule)) return failure;
  }
  *outputLen = inputLen;
  return CKR_OK;
}

}  // namespace brivasign

using namespace brivasign;

CK_RV C_EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                    CK_OBJECT_HANDLE hKey) noexcept {
  return startCipher(rules::ENCRYPT_INIT, hSession, pMechanism, hKey, MOCK_PUBLIC_KEY);
}

CK_RV C_Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen) noexcept {
  return transformBytes(rules::ENCRYPT, hSession, pData, ulDataLen, pEncryptedData,
                        pulEncryptedDataLen);
}

CK_RV C_EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                      CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) noexcept {
  return transformBytes(rules::ENCRYPT_UPDATE, hSession, pPart, ulPartLen, pEncryptedPart,
                        pulEncryptedPartLen);
}

CK_RV C_EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                     CK_ULONG_PTR pulLastEncryptedPartLen) noexcept {
  return finishCipher(rules::ENCRYPT_FINAL, hSession, pLastEncryptedPart, pulLastEncryptedPartLen);
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                    CK_OBJECT_HANDLE hKey) noexcept {
  return startCipher(rules::DECRYPT_INIT, hSession, pMechanism, hKey, MOCK_PRIVATE_KEY);
}

CK_RV C_Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData, CK_ULONG ulEncryptedDataLen,
                CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) noexcept {
  return transformBytes(rules::DECRYPT, hSession, pEncryptedData, ulEncryptedDataLen, pData,
                        pulDataLen);
}

CK_RV C_DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                      CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                      CK_ULONG_PTR pulPartLen) noexcept {
  return transformBytes(rules::DECRYPT_UPDATE, hSession, pEncryptedPart, ulEncryptedPartLen, pPart,
                        pulPartLen);
}

CK_RV C_DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart,
                     CK_ULONG_PTR pulLastPartLen) noexcept {
  return finishCipher(rules::DECRYPT_FINAL, hSession, pLastPart, pulLastPartLen);
}

CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                            CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) noexcept {
  return transformBytes(rules::DIGEST_ENCRYPT_UPDATE, hSession, pPart, ulPartLen, pEncryptedPart,
                        pulEncryptedPartLen);
}

CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                            CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                            CK_ULONG_PTR pulPartLen) noexcept {
  return transformBytes(rules::DECRYPT_DIGEST_UPDATE, hSession, pEncryptedPart, ulEncryptedPartLen,
                        pPart, pulPartLen);
}

CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                          CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) noexcept {
  return transformBytes(rules::SIGN_ENCRYPT_UPDATE, hSession, pPart, ulPartLen, pEncryptedPart,
                        pulEncryptedPartLen);
}

CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                            CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                            CK_ULONG_PTR pulPartLen) noexcept {
  return transformBytes(rules::DECRYPT_VERIFY_UPDATE, hSession, pEncryptedPart, ulEncryptedPartLen,
                        pPart, pulPartLen);
}
