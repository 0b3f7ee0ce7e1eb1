#include <algorithm>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11.h"

using namespace brivasign;

namespace {

// The token has no random number generator and does not set CKF_RNG.
constexpr CK_BYTE RANDOM_BYTE = 0x01;

CK_RV checkBytes(CK_SESSION_HANDLE hSession, const CK_BYTE* bytes, CK_ULONG length) {
  return firstRefusal(initialized(), checkSession(hSession),
                      arguments(bytes != nullptr && length != 0));
}

}  // namespace

CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen) noexcept {
  return checkBytes(hSession, pSeed, ulSeedLen);
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pRandomData,
                       CK_ULONG ulRandomLen) noexcept {
  if (const CK_RV refusal = checkBytes(hSession, pRandomData, ulRandomLen)) return refusal;
  std::fill_n(pRandomData, ulRandomLen, RANDOM_BYTE);
  return CKR_OK;
}
