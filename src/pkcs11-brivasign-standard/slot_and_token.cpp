#include <algorithm>
#include <utility>

#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"
#include "pkcs11-brivasign-standard/mechanism.h"
#include "pkcs11-brivasign-standard/text_field.h"

namespace brivasign::standard {
namespace {

constexpr CK_ULONG LONGEST_PIN = 255;  // bytes; any is taken

constexpr CK_VERSION NO_VERSION = {0, 0};

}  // namespace

CK_RV C_GetSlotList(CK_BBOOL /*tokenPresent*/, CK_SLOT_ID_PTR pSlotList,
                    CK_ULONG_PTR pulCount) noexcept {
  return withLibrary([&](Library& /*library*/) -> CK_RV {
    if (pulCount == nullptr) return CKR_ARGUMENTS_BAD;
    const CK_ULONG room = std::exchange(*pulCount, 1);
    if (pSlotList == nullptr) return CKR_OK;
    if (room == 0) return CKR_BUFFER_TOO_SMALL;
    *pSlotList = SLOT_ID;
    return CKR_OK;
  });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo) noexcept {
  return withSlot(slotID, [&](Library& /*library*/) -> CK_RV {
    if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
    fillTextField(pInfo->slotDescription, "Slot Quorvent");
    fillTextField(pInfo->manufacturerID, "KELMAR");
    pInfo->flags = CKF_TOKEN_PRESENT;
    pInfo->hardwareVersion = NO_VERSION;
    pInfo->firmwareVersion = NO_VERSION;
    return CKR_OK;
  });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo) noexcept {
  return withSlot(slotID, [&](Library& library) -> CK_RV {
    if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
    const SessionRegistry::Counts sessions = library.sessions.counts();
    fillTextField(pInfo->label, "Quorvent");
    fillTextField(pInfo->manufacturerID, "KELMAR");
    fillTextField(pInfo->model, "KELMAR Quorvent");
    fillTextField(pInfo->serialNumber, "1");
    pInfo->flags = CKF_RNG | CKF_WRITE_PROTECTED | CKF_USER_PIN_INITIALIZED |
                   CKF_PROTECTED_AUTHENTICATION_PATH | CKF_TOKEN_INITIALIZED;
    pInfo->ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
    pInfo->ulSessionCount = sessions.all;
    pInfo->ulMaxRwSessionCount = CK_EFFECTIVELY_INFINITE;
    pInfo->ulRwSessionCount = sessions.readWrite;
    pInfo->ulMaxPinLen = LONGEST_PIN;
    pInfo->ulMinPinLen = 0;
    pInfo->ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->hardwareVersion = NO_VERSION;
    pInfo->firmwareVersion = NO_VERSION;
    fillTextField(pInfo->utcTime, "");
    return CKR_OK;
  });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                         CK_ULONG_PTR pulCount) noexcept {
  return withSlot(slotID, [&](Library& /*library*/) -> CK_RV {
    if (pulCount == nullptr) return CKR_ARGUMENTS_BAD;
    const auto all = mechanisms();
    const CK_ULONG room = std::exchange(*pulCount, all.size());
    if (pMechanismList == nullptr) return CKR_OK;
    if (room < all.size()) return CKR_BUFFER_TOO_SMALL;
    std::transform(all.begin(), all.end(), pMechanismList,
                   [](const Mechanism& mechanism) { return mechanism.type; });
    return CKR_OK;
  });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type,
                         CK_MECHANISM_INFO_PTR pInfo) noexcept {
  return withSlot(slotID, [&](Library& /*library*/) -> CK_RV {
    if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
    const Mechanism* const mechanism = findMechanism(type);
    if (mechanism == nullptr) return CKR_MECHANISM_INVALID;
    *pInfo = mechanism->padding == Padding::NONE
                 ? CK_MECHANISM_INFO{0, 0, CKF_DIGEST}
                 : CK_MECHANISM_INFO{LEAST_KEY_SIZE, GREATEST_KEY_SIZE, CKF_HW | CKF_SIGN};
    return CKR_OK;
  });
}

// The slot never changes: there is no event to report, and none to wait for.
CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved) noexcept {
  return withLibrary([&](Library& /*library*/) -> CK_RV {
    if (pSlot == nullptr || pReserved != nullptr) return CKR_ARGUMENTS_BAD;
    return (flags & CKF_DONT_BLOCK) != 0 ? CKR_NO_EVENT : CKR_FUNCTION_NOT_SUPPORTED;
  });
}

}  // namespace brivasign::standard
