#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"

namespace brivasign::standard {

// A read-write session is opened too: what writes is refused, and some programs open no other.
CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR /*pApplication*/,
                    CK_NOTIFY /*Notify*/, CK_SESSION_HANDLE_PTR phSession) noexcept {
  return withSlot(slotID, [&](Library& library) -> CK_RV {
    if (phSession == nullptr) return CKR_ARGUMENTS_BAD;
    if ((flags & CKF_SERIAL_SESSION) == 0) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
    return library.sessions.open((flags & CKF_RW_SESSION) != 0, *phSession);
  });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE hSession) noexcept {
  return withLibrary([&](Library& library) -> CK_RV {
    return library.sessions.close(hSession) ? CKR_OK : CKR_SESSION_HANDLE_INVALID;
  });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID) noexcept {
  return withSlot(slotID, [&](Library& library) -> CK_RV {
    library.sessions.closeAll();
    return CKR_OK;
  });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo) noexcept {
  return withSession(hSession, [&](Library& library, Session& session) -> CK_RV {
    if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
    pInfo->slotID = SLOT_ID;
    pInfo->state = library.sessions.stateOf(session);
    pInfo->flags = CKF_SERIAL_SESSION | (session.isReadWrite ? CKF_RW_SESSION : 0);
    pInfo->ulDeviceError = 0;
    return CKR_OK;
  });
}

// The PIN is not read: the user authorises each signature on a phone. No operation asks for a
// login, and so none for a second one of its own.
CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR /*pPin*/,
              CK_ULONG /*ulPinLen*/) noexcept {
  return withSession(hSession, [&](Library& library, Session& /*session*/) -> CK_RV {
    if (userType == CKU_CONTEXT_SPECIFIC) return CKR_OPERATION_NOT_INITIALIZED;
    if (userType != CKU_SO && userType != CKU_USER) return CKR_USER_TYPE_INVALID;
    return library.sessions.login(hSession, userType);
  });
}

CK_RV C_Logout(CK_SESSION_HANDLE hSession) noexcept {
  return withLibrary([&](Library& library) { return library.sessions.logout(hSession); });
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE hSession) noexcept {
  return withSession(hSession, [](Library& /*library*/, Session& /*session*/) -> CK_RV {
    return CKR_FUNCTION_NOT_PARALLEL;
  });
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE hSession) noexcept {
  return C_GetFunctionStatus(hSession);
}

}  // namespace brivasign::standard
