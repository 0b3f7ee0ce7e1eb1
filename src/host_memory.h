#pragma once

#include "pkcs11.h"

namespace brivasign {

// Does the `work` of an entry point. Returns its result, or CKR_HOST_MEMORY when it ran out of
// memory: no exception may reach the host. What it did until then stays done.
template <class Work>
CK_RV orHostMemory(const Work& work) {
  try {
    return work();
  } catch (...) {
    return CKR_HOST_MEMORY;
  }
}

}  // namespace brivasign
