#pragma once

#include "pkcs11.h"

// The functions of the table, under names of their own: one program may hold both libraries. Those
// that have no meaning here are declared and not defined.

namespace brivasign::standard {

#define CK_FUNCTION_ENTRY(name, arguments) CK_RV name arguments noexcept;
#include "pkcs11f.h"
#undef CK_FUNCTION_ENTRY

}  // namespace brivasign::standard
