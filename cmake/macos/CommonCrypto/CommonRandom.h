// Stands in for the header of macOS with this name, which the cross compiler does not bring:
// OpenSSL's random source includes it, and calls this function of libSystem.
#pragma once

#include <CommonCrypto/CommonCryptoError.h>
#include <stddef.h>

typedef CCCryptorStatus CCRNGStatus;

CCRNGStatus CCRandomGenerateBytes(void* bytes, size_t count);
