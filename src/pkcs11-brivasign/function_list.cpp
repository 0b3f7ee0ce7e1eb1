#include "pkcs11.h"

namespace {

const CK_FUNCTION_LIST moduleFunctionList = {
    {2, 20},
#define CK_FUNCTION_ENTRY(name, arguments) name,
#include "pkcs11f.h"
#undef CK_FUNCTION_ENTRY
};

}  // namespace

// Allowed before C_Initialize: the table is how a consumer reaches every other function.
CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) noexcept {
  if (ppFunctionList == nullptr) return CKR_ARGUMENTS_BAD;
  // The standard's type lacks the const; the table itself stays in read-only memory.
  *ppFunctionList = const_cast<CK_FUNCTION_LIST*>(&moduleFunctionList);
  return CKR_OK;
}
