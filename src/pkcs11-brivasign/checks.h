#pragma once

#include "pkcs11-brivasign/module_state.h"
#include "pkcs11.h"

// The tests that entry points make before their work. Each yields CKR_OK or its refusal and reads
// nothing but its arguments and the module's state, so an entry point lists them in the order in
// which they count and takes the first refusal. A test that follows a caller's pointer stands in a
// list of its own behind them: the pointer need not be good where the call is refused before.

namespace brivasign {

// Returns the first of `results`, in order, that is not CKR_OK, or CKR_OK.
template <class... Results>
constexpr CK_RV firstRefusal(Results... results) {
  CK_RV refusal = CKR_OK;
  static_cast<void>((((refusal = results) != CKR_OK) || ...));
  return refusal;
}

// Returns CKR_OK when `condition` holds, else `refusal`.
constexpr CK_RV require(bool condition, CK_RV refusal) { return condition ? CKR_OK : refusal; }

// Refuses calls outside C_Initialize and C_Finalize.
inline CK_RV initialized() { return require(moduleInitialized != 0, CKR_CRYPTOKI_NOT_INITIALIZED); }

// Refuses every slot but the one.
constexpr CK_RV checkSlot(CK_SLOT_ID slotID) {
  return require(slotID == SLOT_ID, CKR_SLOT_ID_INVALID);
}

// Refuses every session but the one, and that one while it is closed.
inline CK_RV checkSession(CK_SESSION_HANDLE hSession) {
  return require(hSession == SESSION_HANDLE && sessionOpen != 0, CKR_SESSION_HANDLE_INVALID);
}

// Refuses missing pointers and zero lengths: `present` tells whether all that is needed is there.
constexpr CK_RV arguments(bool present) { return require(present, CKR_ARGUMENTS_BAD); }

// Returns whether an attribute carries a value: a pointer and a length.
constexpr bool hasValue(const CK_ATTRIBUTE& attribute) {
  return attribute.pValue != nullptr && attribute.ulValueLen != 0;
}

}  // namespace brivasign
