#include <openssl/err.h>
#include <openssl/evp.h>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/module_state.h"
#include "pkcs11-brivasign/text_field.h"
#include "pkcs11.h"
#include "service/tls_settings.h"

using namespace brivasign;

// The argument is not read: the module takes no lock and starts no thread, so no threading wish
// can be refused or honoured.
CK_RV C_Initialize(CK_VOID_PTR /*pInitArgs*/) noexcept {
  if (moduleInitialized != 0) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  moduleInitialized = 1;
  startTlsLibrary();
  return CKR_OK;
}

// The session and any operation stay as they are: a later C_Initialize finds them again.
CK_RV C_Finalize(CK_VOID_PTR /*pReserved*/) noexcept {
  if (const CK_RV refusal = initialized()) return refusal;
  moduleInitialized = 0;
  EVP_cleanup();
  ERR_free_strings();
  return CKR_OK;
}

CK_RV C_GetInfo(CK_INFO_PTR pInfo) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), arguments(pInfo != nullptr))) {
    return refusal;
  }
  pInfo->cryptokiVersion = {2, 20};
  fillTextField(pInfo->manufacturerID, "KELMAR");
  pInfo->flags = 0;
  fillTextField(pInfo->libraryDescription, "Modulo PKCS#11 KELMAR Quorvent");
  pInfo->libraryVersion = {3, 11};
  return CKR_OK;
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE hSession) noexcept {
  return firstRefusal(initialized(), checkSession(hSession), CKR_FUNCTION_NOT_PARALLEL);
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE hSession) noexcept {
  return firstRefusal(initialized(), checkSession(hSession), CKR_FUNCTION_NOT_PARALLEL);
}

// The slot never changes, so there is no event to report and, without CKF_DONT_BLOCK too, nothing
// to wait for.
CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved) noexcept {
  return firstRefusal(
      initialized(), arguments(flags <= CKF_DONT_BLOCK && pSlot != nullptr && pReserved == nullptr),
      CKR_NO_EVENT);
}
