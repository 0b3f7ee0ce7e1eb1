#include "pkcs11-brivasign-standard/entry_points.h"

namespace brivasign::standard {
namespace {

// What has no meaning for this token: it is not imitated.
template <class... Arguments>
CK_RV notSupported(Arguments... /*arguments*/) noexcept {
  return CKR_FUNCTION_NOT_SUPPORTED;
}

constexpr CK_FUNCTION_LIST FUNCTION_LIST = [] {
  CK_FUNCTION_LIST list = {
      {2, 40},
#define CK_FUNCTION_ENTRY(name, arguments) notSupported,
#include "pkcs11f.h"
#undef CK_FUNCTION_ENTRY
  };
  list.C_Initialize = C_Initialize;
  list.C_Finalize = C_Finalize;
  list.C_GetInfo = C_GetInfo;
  list.C_GetFunctionList = C_GetFunctionList;
  list.C_GetSlotList = C_GetSlotList;
  list.C_GetSlotInfo = C_GetSlotInfo;
  list.C_GetTokenInfo = C_GetTokenInfo;
  list.C_GetMechanismList = C_GetMechanismList;
  list.C_GetMechanismInfo = C_GetMechanismInfo;
  list.C_OpenSession = C_OpenSession;
  list.C_CloseSession = C_CloseSession;
  list.C_CloseAllSessions = C_CloseAllSessions;
  list.C_GetSessionInfo = C_GetSessionInfo;
  list.C_Login = C_Login;
  list.C_Logout = C_Logout;
  list.C_GetObjectSize = C_GetObjectSize;
  list.C_GetAttributeValue = C_GetAttributeValue;
  list.C_FindObjectsInit = C_FindObjectsInit;
  list.C_FindObjects = C_FindObjects;
  list.C_FindObjectsFinal = C_FindObjectsFinal;
  list.C_DigestInit = C_DigestInit;
  list.C_Digest = C_Digest;
  list.C_DigestUpdate = C_DigestUpdate;
  list.C_DigestFinal = C_DigestFinal;
  list.C_SignInit = C_SignInit;
  list.C_Sign = C_Sign;
  list.C_SignUpdate = C_SignUpdate;
  list.C_SignFinal = C_SignFinal;
  list.C_SeedRandom = C_SeedRandom;
  list.C_GenerateRandom = C_GenerateRandom;
  list.C_GetFunctionStatus = C_GetFunctionStatus;
  list.C_CancelFunction = C_CancelFunction;
  list.C_WaitForSlotEvent = C_WaitForSlotEvent;
  return list;
}();

}  // namespace

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) noexcept {
  if (ppFunctionList == nullptr) return CKR_ARGUMENTS_BAD;
  // The standard's type lacks the const; the table itself stays in read-only memory.
  *ppFunctionList = const_cast<CK_FUNCTION_LIST*>(&FUNCTION_LIST);
  return CKR_OK;
}

}  // namespace brivasign::standard

// The one name that is exported: how a consumer reaches every other function.
CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) noexcept {
  return brivasign::standard::C_GetFunctionList(ppFunctionList);
}
