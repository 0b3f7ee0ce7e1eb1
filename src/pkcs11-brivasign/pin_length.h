#pragma once

#include "pkcs11.h"

namespace brivasign {

// Bounds of a PIN's length in bytes, both inclusive: what the token reports and C_SetPIN enforces.
constexpr CK_ULONG MIN_PIN_LENGTH = 4;
constexpr CK_ULONG MAX_PIN_LENGTH = 256;

}  // namespace brivasign
