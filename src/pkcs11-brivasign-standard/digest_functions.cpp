#include <optional>
#include <utility>

#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"
#include "pkcs11-brivasign-standard/output.h"

namespace brivasign::standard {
namespace {

// Does `work` with the pending digest of the session, which is over then, unless `work` has it
// kept.
template <class Work>
CK_RV withDigest(CK_SESSION_HANDLE handle, Work work) noexcept {
  return withLockedSession(handle, [&](Library& /*library*/, Session& session) -> CK_RV {
    std::optional<DigestOperation> digest = std::exchange(session.digest, std::nullopt);
    if (!digest) return CKR_OPERATION_NOT_INITIALIZED;
    bool isKept = false;
    const CK_RV result = work(*digest, isKept);
    if (isKept) session.digest = std::move(digest);
    return result;
  });
}

}  // namespace

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

// What has been begun in parts ends in parts, and ends here too.
CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) noexcept {
  return withDigest(hSession, [&](DigestOperation& digest, bool& isKept) -> CK_RV {
    if (digest.hasParts()) return CKR_OPERATION_NOT_INITIALIZED;
    if (pulDigestLen == nullptr || !isReadable(pData, ulDataLen)) return CKR_ARGUMENTS_BAD;
    const auto room = checkRoom(pDigest, pulDigestLen, digest.length());
    isKept = room.has_value();
    if (isKept) return *room;
    digest.update({pData, ulDataLen});
    putBytes(digest.finish(), pDigest);
    return CKR_OK;
  });
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) noexcept {
  return withDigest(hSession, [&](DigestOperation& digest, bool& isKept) -> CK_RV {
    if (!isReadable(pPart, ulPartLen)) return CKR_ARGUMENTS_BAD;
    digest.update({pPart, ulPartLen});
    isKept = true;
    return CKR_OK;
  });
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,
                    CK_ULONG_PTR pulDigestLen) noexcept {
  return withDigest(hSession, [&](DigestOperation& digest, bool& isKept) -> CK_RV {
    if (pulDigestLen == nullptr) return CKR_ARGUMENTS_BAD;
    const auto room = checkRoom(pDigest, pulDigestLen, digest.length());
    isKept = room.has_value();
    if (isKept) return *room;
    putBytes(digest.finish(), pDigest);
    return CKR_OK;
  });
}

}  // namespace brivasign::standard
