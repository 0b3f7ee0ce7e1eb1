#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"
#include "pkcs11-brivasign-standard/output.h"

namespace brivasign::standard {

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) noexcept {
  return withLockedSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    if (pMechanism == nullptr) return CKR_ARGUMENTS_BAD;
    if (session.digest) return CKR_OPERATION_ACTIVE;
    const Hash* const hash = findHash(pMechanism->mechanism);
    if (hash == nullptr) return CKR_MECHANISM_INVALID;
    if (pMechanism->ulParameterLen != 0) return CKR_MECHANISM_PARAM_INVALID;
    session.digest.emplace(*hash);
    return CKR_OK;
  });
}

CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) noexcept {
  return withLockedSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    if (!session.digest || session.digest->hasParts()) return CKR_OPERATION_NOT_INITIALIZED;
    if (pulDigestLen != nullptr && isReadable(pData, ulDataLen)) {
      const auto room = checkRoom(pDigest, pulDigestLen, session.digest->length());
      if (room) return *room;
      session.digest->update({pData, ulDataLen});
      putBytes(session.digest->finish(), pDigest);
      session.digest.reset();
      return CKR_OK;
    }
    session.digest.reset();
    return CKR_ARGUMENTS_BAD;
  });
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) noexcept {
  return withLockedSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    if (!session.digest) return CKR_OPERATION_NOT_INITIALIZED;
    if (!isReadable(pPart, ulPartLen)) {
      session.digest.reset();
      return CKR_ARGUMENTS_BAD;
    }
    session.digest->update({pPart, ulPartLen});
    return CKR_OK;
  });
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,
                    CK_ULONG_PTR pulDigestLen) noexcept {
  return withLockedSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    if (!session.digest) return CKR_OPERATION_NOT_INITIALIZED;
    if (pulDigestLen == nullptr) {
      session.digest.reset();
      return CKR_ARGUMENTS_BAD;
    }
    const auto room = checkRoom(pDigest, pulDigestLen, session.digest->length());
    if (room) return *room;
    putBytes(session.digest->finish(), pDigest);
    session.digest.reset();
    return CKR_OK;
  });
}

}  // namespace brivasign::standard
