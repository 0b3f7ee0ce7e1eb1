#include <openssl/rand.h>

#include <algorithm>
#include <climits>

#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"

namespace brivasign::standard {

// The TLS library takes the seed in beside its own sources and relies on those alone.
CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen) noexcept {
  return withSession(hSession, [&](Library& /*library*/, Session& /*session*/) -> CK_RV {
    if (!isReadable(pSeed, ulSeedLen) || ulSeedLen > INT_MAX) return CKR_ARGUMENTS_BAD;
    RAND_add(pSeed, static_cast<int>(ulSeedLen), 0);
    return CKR_OK;
  });
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pRandomData,
                       CK_ULONG ulRandomLen) noexcept {
  return withSession(hSession, [&](Library& /*library*/, Session& /*session*/) -> CK_RV {
    if (!isReadable(pRandomData, ulRandomLen)) return CKR_ARGUMENTS_BAD;
    while (ulRandomLen != 0) {
      // The TLS library counts in int.
      const CK_ULONG length = std::min(ulRandomLen, CK_ULONG{INT_MAX});
      if (RAND_bytes(pRandomData, static_cast<int>(length)) != 1) return CKR_DEVICE_ERROR;
      pRandomData += length;
      ulRandomLen -= length;
    }
    return CKR_OK;
  });
}

}  // namespace brivasign::standard
