#include <algorithm>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/module_state.h"
#include "pkcs11-brivasign/pin_length.h"
#include "pkcs11.h"

using namespace brivasign;

namespace {

constexpr CK_ULONG OPERATION_STATE_LENGTH = 256;  // bytes
constexpr CK_BYTE OPERATION_STATE_BYTE = 0x01;

// What a login of one kind of user does in one state of the session.
struct LoginOutcome {
  CK_STATE state;  // afterwards
  CK_RV result;
};

// First index: `sessionState`; second: the user type, CKU_SO (0) and CKU_USER (1).
constexpr LoginOutcome LOGIN_OUTCOMES[][2] = {
    {{CKS_RO_PUBLIC_SESSION, CKR_SESSION_READ_ONLY_EXISTS}, {CKS_RO_USER_FUNCTIONS, CKR_OK}},
    {{CKS_RO_USER_FUNCTIONS, CKR_USER_ANOTHER_ALREADY_LOGGED_IN},
     {CKS_RO_USER_FUNCTIONS, CKR_USER_ALREADY_LOGGED_IN}},
    {{CKS_RW_SO_FUNCTIONS, CKR_OK}, {CKS_RW_USER_FUNCTIONS, CKR_OK}},
    {{CKS_RW_USER_FUNCTIONS, CKR_USER_ANOTHER_ALREADY_LOGGED_IN},
     {CKS_RW_USER_FUNCTIONS, CKR_USER_ALREADY_LOGGED_IN}},
    {{CKS_RW_SO_FUNCTIONS, CKR_USER_ALREADY_LOGGED_IN},
     {CKS_RW_SO_FUNCTIONS, CKR_USER_ANOTHER_ALREADY_LOGGED_IN}},
};

bool isReadWrite() { return sessionState >= CKS_RW_PUBLIC_SESSION; }

bool isLoggedIn() {
  return sessionState != CKS_RO_PUBLIC_SESSION && sessionState != CKS_RW_PUBLIC_SESSION;
}

CK_RV checkPinLength(CK_ULONG length) {
  return require(length >= MIN_PIN_LENGTH && length <= MAX_PIN_LENGTH, CKR_PIN_LEN_RANGE);
}

}  // namespace

// An open session is not refused: it is opened again, which ends any login. An operation in
// progress goes on.
CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR /*pApplication*/,
                    CK_NOTIFY /*Notify*/, CK_SESSION_HANDLE_PTR phSession) noexcept {
  if (const CK_RV refusal = firstRefusal(
          initialized(), checkSlot(slotID),
          require((flags & CKF_SERIAL_SESSION) != 0, CKR_SESSION_PARALLEL_NOT_SUPPORTED),
          arguments(phSession != nullptr))) {
    return refusal;
  }
  static_assert(CKF_RW_SESSION == CKS_RW_PUBLIC_SESSION);
  sessionOpen = 1;
  sessionState = flags & CKF_RW_SESSION;
  *phSession = SESSION_HANDLE;
  return CKR_OK;
}

// No handle is tested, and the session's handle stays valid: consumers that close one of the many
// sessions that they believe to have must not lose the only one.
CK_RV C_CloseSession(CK_SESSION_HANDLE /*hSession*/) noexcept {
  if (const CK_RV refusal = initialized()) return refusal;
  sessionState = CKS_RO_PUBLIC_SESSION;
  activeOperation = OP_NONE;
  return CKR_OK;
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSlot(slotID))) return refusal;
  sessionOpen = 0;
  sessionState = CKS_RO_PUBLIC_SESSION;
  activeOperation = OP_NONE;
  return CKR_OK;
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSession(hSession), arguments(pInfo != nullptr))) {
    return refusal;
  }
  pInfo->slotID = SLOT_ID;
  pInfo->state = sessionState;
  pInfo->flags = CKF_SERIAL_SESSION | (isReadWrite() ? CKF_RW_SESSION : 0);
  pInfo->ulDeviceError = 0;
  return CKR_OK;
}

// The PIN is not read: the user authorises each signature on a phone.
CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR /*pPin*/,
              CK_ULONG /*ulPinLen*/) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession),
                                         require(userType <= CKU_USER, CKR_USER_TYPE_INVALID))) {
    return refusal;
  }
  if (sessionState > CKS_RW_SO_FUNCTIONS) return CKR_OK;  // cannot arise; keeps within the table
  const LoginOutcome& outcome = LOGIN_OUTCOMES[sessionState][userType];
  sessionState = outcome.state;
  return outcome.result;
}

// The session stays logged in: what a login permits is decided on the phone.
CK_RV C_Logout(CK_SESSION_HANDLE hSession) noexcept {
  return firstRefusal(initialized(), checkSession(hSession),
                      require(isLoggedIn(), CKR_USER_NOT_LOGGED_IN));
}

CK_RV C_InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR /*pPin*/, CK_ULONG /*ulPinLen*/,
                  CK_UTF8CHAR_PTR pLabel) noexcept {
  return firstRefusal(initialized(), checkSlot(slotID), arguments(pLabel != nullptr),
                      require(sessionOpen == 0, CKR_SESSION_EXISTS));
}

CK_RV C_InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR /*pPin*/,
                CK_ULONG /*ulPinLen*/) noexcept {
  return firstRefusal(initialized(), checkSession(hSession),
                      require(sessionState == CKS_RW_SO_FUNCTIONS, CKR_USER_NOT_LOGGED_IN));
}

CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
               CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen) noexcept {
  return firstRefusal(initialized(), checkSession(hSession),
                      require(isReadWrite(), CKR_SESSION_READ_ONLY), arguments(pOldPin != nullptr),
                      checkPinLength(ulOldLen), arguments(pNewPin != nullptr),
                      checkPinLength(ulNewLen));
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG_PTR pulOperationStateLen) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), checkSession(hSession),
                                         arguments(pulOperationStateLen != nullptr))) {
    return refusal;
  }
  if (pOperationState != nullptr) {
    if (*pulOperationStateLen < OPERATION_STATE_LENGTH) return CKR_BUFFER_TOO_SMALL;
    std::fill_n(pOperationState, OPERATION_STATE_LENGTH, OPERATION_STATE_BYTE);
  }
  *pulOperationStateLen = OPERATION_STATE_LENGTH;
  return CKR_OK;
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE /*hEncryptionKey*/,
                          CK_OBJECT_HANDLE /*hAuthenticationKey*/) noexcept {
  return firstRefusal(
      initialized(), checkSession(hSession),
      arguments(pOperationState != nullptr && ulOperationStateLen == OPERATION_STATE_LENGTH));
}
