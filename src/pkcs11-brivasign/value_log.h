#pragma once

#include "pkcs11.h"

namespace brivasign {

// Logs one line in which the single conversion of `format` (for an unsigned int) stands for the low
// 32 bits of `value`.
void logValue(const char* format, CK_ULONG value);

}  // namespace brivasign
