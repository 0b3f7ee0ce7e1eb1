// Stands in for the header of macOS with this name, which the cross compiler does not bring:
// OpenSSL's random source includes it.
#pragma once

#include <stdint.h>

typedef int32_t CCCryptorStatus;

enum { kCCSuccess = 0 };
