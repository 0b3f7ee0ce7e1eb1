#include <array>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/mechanisms.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11-brivasign/placeholder.h"
#include "pkcs11.h"

using namespace brivasign;

namespace {

// The digest of everything.
constexpr std::array<CK_BYTE, 20> MOCK_DIGEST = {0x7b, 0x50, 0x2c, 0x3a, 0x1f, 0x48, 0xc8,
                                                 0x60, 0x9a, 0xe2, 0x12, 0xcd, 0xfb, 0x63,
                                                 0x9d, 0xee, 0x39, 0x67, 0x3f, 0x5e};

// Answers with the digest; a call with a buffer moves the state as `rule` says.
CK_RV putDigest(const OperationRule& rule, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) {
  if (const CK_RV refusal = putFixedValue(MOCK_DIGEST, pDigest, pulDigestLen)) return refusal;
  return pDigest == nullptr ? CKR_OK : advance(rule);
}

}  // namespace

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), operation(rules::DIGEST_INIT), checkSession(hSession))) {
    return refusal;
  }
  if (const CK_RV refusal = checkMechanism(pMechanism, {CKM_SHA_1})) return refusal;
  return advance(rules::DIGEST_INIT);
}

CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) noexcept {
  if (const CK_RV refusal = firstRefusal(acceptBytes(rules::DIGEST, hSession, pData, ulDataLen),
                                         arguments(pulDigestLen != nullptr))) {
    return refusal;
  }
  return putDigest(rules::DIGEST, pDigest, pulDigestLen);
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) noexcept {
  return acceptBytes(rules::DIGEST_UPDATE, hSession, pPart, ulPartLen);
}

CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey) noexcept {
  return firstRefusal(initialized(), operation(rules::DIGEST_KEY), checkSession(hSession),
                      require(hKey == MOCK_SECRET_KEY, CKR_OBJECT_HANDLE_INVALID));
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,
                    CK_ULONG_PTR pulDigestLen) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), operation(rules::DIGEST_FINAL), checkSession(hSession),
                       arguments(pulDigestLen != nullptr))) {
    return refusal;
  }
  return putDigest(rules::DIGEST_FINAL, pDigest, pulDigestLen);
}
