#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11.h"

using namespace brivasign;

namespace {

constexpr CK_ULONG OBJECT_SIZE = 256;  // bytes

CK_RV checkObject(CK_OBJECT_HANDLE hObject) {
  return require(hObject >= MOCK_OBJECT && hObject <= MOCK_PRIVATE_KEY, CKR_OBJECT_HANDLE_INVALID);
}

}  // namespace

CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                     CK_OBJECT_HANDLE_PTR phObject) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSession(hSession), arguments(phObject != nullptr))) {
    return refusal;
  }
  if (const CK_RV refusal = checkTemplate(pTemplate, ulCount)) return refusal;
  *phObject = MOCK_OBJECT;
  return CKR_OK;
}

CK_RV C_CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                   CK_ATTRIBUTE_PTR /*pTemplate*/, CK_ULONG /*ulCount*/,
                   CK_OBJECT_HANDLE_PTR phNewObject) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession),
                                         require(hObject == MOCK_OBJECT, CKR_OBJECT_HANDLE_INVALID),
                                         arguments(phNewObject != nullptr))) {
    return refusal;
  }
  *phNewObject = MOCK_OBJECT;
  return CKR_OK;
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) noexcept {
  return firstRefusal(initialized(), checkSession(hSession), checkObject(hObject));
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                      CK_ULONG_PTR pulSize) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession),
                                         checkObject(hObject), arguments(pulSize != nullptr))) {
    return refusal;
  }
  *pulSize = OBJECT_SIZE;
  return CKR_OK;
}

// Nothing is stored. Per attribute the type is tested before the value.
CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSession(hSession), checkObject(hObject),
                       arguments(pTemplate != nullptr && ulCount != 0))) {
    return refusal;
  }
  for (CK_ULONG i = 0; i < ulCount; ++i) {
    const bool settable = pTemplate[i].type == CKA_LABEL || pTemplate[i].type == CKA_VALUE;
    if (!settable) return CKR_ATTRIBUTE_TYPE_INVALID;
    if (!hasValue(pTemplate[i])) return CKR_ATTRIBUTE_VALUE_INVALID;
  }
  return CKR_OK;
}
