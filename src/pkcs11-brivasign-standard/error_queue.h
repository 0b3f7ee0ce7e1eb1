#pragma once

#include <openssl/err.h>

#include "out_of_memory.h"

namespace brivasign::standard {

// Takes away what the TLS library has queued: no later line of the log shall speak of it. Throws
// OutOfMemory where a lack of memory is among it, since what has been found out then does not
// count.
inline void clearErrors() {
  bool isOutOfMemory = false;
  while (const unsigned long error = ERR_get_error()) {
    const int reason = ERR_GET_REASON(error);
    // The second is what becomes of a stack of its own that cannot grow.
    isOutOfMemory |= reason == ERR_R_MALLOC_FAILURE || reason == ERR_R_CRYPTO_LIB;
  }
  if (isOutOfMemory) throw OutOfMemory();
}

}  // namespace brivasign::standard
