#pragma once

#include <initializer_list>

#include "pkcs11.h"

namespace brivasign {

// Tests the mechanism that starts an operation: `mechanism`, which may be null, must be one of
// `accepted` and carry the parameter that its type requires.
// Returns CKR_OK, CKR_ARGUMENTS_BAD, CKR_MECHANISM_INVALID or CKR_MECHANISM_PARAM_INVALID.
CK_RV checkMechanism(const CK_MECHANISM* mechanism,
                     std::initializer_list<CK_MECHANISM_TYPE> accepted);

}  // namespace brivasign
