#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/module_state.h"
#include "pkcs11-brivasign/pin_length.h"
#include "pkcs11-brivasign/text_field.h"
#include "pkcs11.h"

using namespace brivasign;

namespace {

constexpr CK_VERSION DEVICE_VERSION = {1, 0};
constexpr CK_ULONG MEMORY_SIZE = 61440;  // bytes

}  // namespace

// `tokenPresent` makes no difference: the one slot always holds its token.
CK_RV C_GetSlotList(CK_BBOOL /*tokenPresent*/, CK_SLOT_ID_PTR pSlotList,
                    CK_ULONG_PTR pulCount) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), arguments(pulCount != nullptr))) {
    return refusal;
  }
  if (pSlotList != nullptr) {
    if (*pulCount == 0) return CKR_BUFFER_TOO_SMALL;
    *pSlotList = SLOT_ID;
  }
  *pulCount = 1;
  return CKR_OK;
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSlot(slotID), arguments(pInfo != nullptr))) {
    return refusal;
  }
  fillTextField(pInfo->slotDescription, "Slot Quorvent");
  fillTextField(pInfo->manufacturerID, "KELMAR");
  pInfo->flags = CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT;
  pInfo->hardwareVersion = DEVICE_VERSION;
  pInfo->firmwareVersion = DEVICE_VERSION;
  return CKR_OK;
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSlot(slotID), arguments(pInfo != nullptr))) {
    return refusal;
  }
  fillTextField(pInfo->label, "Quorvent");
  fillTextField(pInfo->manufacturerID, "KELMAR");
  fillTextField(pInfo->model, "KELMAR Quorvent - certificados em nuvem");
  fillTextField(pInfo->serialNumber, "1");
  pInfo->flags = CKF_WRITE_PROTECTED | CKF_USER_PIN_INITIALIZED |
                 CKF_PROTECTED_AUTHENTICATION_PATH | CKF_TOKEN_INITIALIZED;
  pInfo->ulMaxSessionCount = CK_UNAVAILABLE_INFORMATION;
  pInfo->ulSessionCount = sessionOpen;
  pInfo->ulMaxRwSessionCount = CK_UNAVAILABLE_INFORMATION;
  pInfo->ulRwSessionCount = sessionOpen;
  pInfo->ulMaxPinLen = MAX_PIN_LENGTH;
  pInfo->ulMinPinLen = MIN_PIN_LENGTH;
  pInfo->ulTotalPublicMemory = MEMORY_SIZE;
  pInfo->ulFreePublicMemory = 0;
  pInfo->ulTotalPrivateMemory = MEMORY_SIZE;
  pInfo->ulFreePrivateMemory = 0;
  pInfo->hardwareVersion = DEVICE_VERSION;
  pInfo->firmwareVersion = DEVICE_VERSION;
  fillTextField(pInfo->utcTime, "");
  return CKR_OK;
}
