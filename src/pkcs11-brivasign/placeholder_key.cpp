#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/mechanisms.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11.h"

using namespace brivasign;

CK_RV C_GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                    CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                    CK_OBJECT_HANDLE_PTR phKey) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal = firstRefusal(checkMechanism(pMechanism, {CKM_DES3_KEY_GEN}),
                                         arguments(phKey != nullptr))) {
    return refusal;
  }
  if (const CK_RV refusal = checkTemplate(pTemplate, ulCount)) return refusal;
  *phKey = MOCK_SECRET_KEY;
  return CKR_OK;
}

// The one function that is not imitated: it makes no test at all, so that a consumer learns at any
// time that keys are made elsewhere.
CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE /*hSession*/, CK_MECHANISM_PTR /*pMechanism*/,
                        CK_ATTRIBUTE_PTR /*pPublicKeyTemplate*/,
                        CK_ULONG /*ulPublicKeyAttributeCount*/,
                        CK_ATTRIBUTE_PTR /*pPrivateKeyTemplate*/,
                        CK_ULONG /*ulPrivateKeyAttributeCount*/,
                        CK_OBJECT_HANDLE_PTR /*phPublicKey*/,
                        CK_OBJECT_HANDLE_PTR /*phPrivateKey*/) noexcept {
  return CKR_FUNCTION_NOT_SUPPORTED;
}

// `pulWrappedKeyLen` is not tested for null: consumers have always had to offer it.
CK_RV C_WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey,
                CK_ULONG_PTR pulWrappedKeyLen) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal =
          firstRefusal(checkMechanism(pMechanism, {CKM_RSA_PKCS}),
                       require(hWrappingKey == MOCK_PUBLIC_KEY && hKey == MOCK_SECRET_KEY,
                               CKR_KEY_HANDLE_INVALID))) {
    return refusal;
  }
  return putFixedValue(MOCK_SIGNATURE, pWrappedKey, pulWrappedKeyLen);
}

CK_RV C_UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey,
                  CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount,
                  CK_OBJECT_HANDLE_PTR phKey) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal = firstRefusal(
          checkMechanism(pMechanism, {CKM_RSA_PKCS}),
          require(hUnwrappingKey == MOCK_PRIVATE_KEY, CKR_KEY_HANDLE_INVALID),
          arguments(pWrappedKey != nullptr && ulWrappedKeyLen != 0 && phKey != nullptr))) {
    return refusal;
  }
  if (const CK_RV refusal = checkTemplate(pTemplate, ulAttributeCount)) return refusal;
  *phKey = MOCK_SECRET_KEY;
  return CKR_OK;
}

CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR /*pTemplate*/,
                  CK_ULONG /*ulAttributeCount*/, CK_OBJECT_HANDLE_PTR phKey) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal =
          firstRefusal(checkMechanism(pMechanism, {CKM_XOR_BASE_AND_DATA}),
                       require(hBaseKey == MOCK_SECRET_KEY, CKR_OBJECT_HANDLE_INVALID),
                       arguments(phKey != nullptr))) {
    return refusal;
  }
  *phKey = MOCK_SECRET_KEY;
  return CKR_OK;
}
