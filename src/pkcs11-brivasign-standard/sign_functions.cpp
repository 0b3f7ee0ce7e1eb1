#include <string>
#include <utility>

#include "certcache/object_handle.h"
#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"
#include "pkcs11-brivasign-standard/output.h"

namespace brivasign::standard {
namespace {

// Finds the certificate of the private key `handle`, as it is now.
CK_RV findKey(Library& library, CK_OBJECT_HANDLE handle, CertificatePtr& certificate) {
  const auto name = objectName(handle);
  if (!name || name->objectClass == CKO_CERTIFICATE) return CKR_KEY_HANDLE_INVALID;
  certificate = library.certificates.find(name->id);
  if (certificate == nullptr || !certificate->hasRsaKey()) return CKR_KEY_HANDLE_INVALID;
  return name->objectClass == CKO_PRIVATE_KEY ? CKR_OK : CKR_KEY_FUNCTION_NOT_PERMITTED;
}

// The pending signature of a session, for one call. It is over with the call, unless it is kept.
// The session is locked except while the user is asked.
class PendingSignature {
 public:
  explicit PendingSignature(Session& session) : session_(session) {
    session.mutex.lock();
    isThere_ = session.sign != nullptr && !session.isSigning;
  }
  PendingSignature(const PendingSignature&) = delete;
  PendingSignature& operator=(const PendingSignature&) = delete;
  ~PendingSignature() {
    if (isThere_ && !isKept_) session_.sign.reset();
    session_.mutex.unlock();
  }

  [[nodiscard]] bool isThere() const { return isThere_; }
  SignOperation& operation() { return *session_.sign; }

  // Leaves it pending and returns `result`.
  CK_RV keep(CK_RV result) {
    isKept_ = true;
    return result;
  }

  // Asks the user, while the session is free for all but another signature.
  CK_RV finish(std::string& signature) {
    const Waiting waiting(session_);
    return operation().finish(signature);
  }

 private:
  struct Waiting {
    explicit Waiting(Session& session) : session_(session) {
      session.isSigning = true;
      session.mutex.unlock();
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    ~Waiting() {
      session_.mutex.lock();
      session_.isSigning = false;
    }

   private:
    Session& session_;
  };

  Session& session_;
  bool isThere_;
  bool isKept_ = false;
};

// Ends `pending` with its signature in `buffer`.
CK_RV deliver(PendingSignature& pending, CK_BYTE_PTR buffer) {
  std::string signature;
  const CK_RV result = pending.finish(signature);
  if (result == CKR_OK) putBytes(signature, buffer);
  return result;
}

}  // namespace

CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                 CK_OBJECT_HANDLE hKey) noexcept {
  return withLockedSession(hSession, [&](Library& library, Session& session) -> CK_RV {
    if (pMechanism == nullptr) return CKR_ARGUMENTS_BAD;
    if (session.sign != nullptr) return CKR_OPERATION_ACTIVE;
    CertificatePtr certificate;
    if (const CK_RV refusal = findKey(library, hKey, certificate)) return refusal;
    return SignOperation::start(*pMechanism, std::move(certificate), session.sign);
  });
}

CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) noexcept {
  return withSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    PendingSignature pending(session);
    if (!pending.isThere()) return CKR_OPERATION_NOT_INITIALIZED;
    // What has been begun in parts ends in parts, and ends here too.
    if (pending.operation().hasParts()) return CKR_OPERATION_NOT_INITIALIZED;
    if (pulSignatureLen == nullptr || !isReadable(pData, ulDataLen)) return CKR_ARGUMENTS_BAD;
    if (const auto room = checkRoom(pSignature, pulSignatureLen, pending.operation().length())) {
      return pending.keep(*room);
    }
    if (const CK_RV refusal = pending.operation().update({pData, ulDataLen})) return refusal;
    return deliver(pending, pSignature);
  });
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) noexcept {
  return withSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    PendingSignature pending(session);
    if (!pending.isThere()) return CKR_OPERATION_NOT_INITIALIZED;
    if (!isReadable(pPart, ulPartLen)) return CKR_ARGUMENTS_BAD;
    if (const CK_RV refusal = pending.operation().update({pPart, ulPartLen})) return refusal;
    return pending.keep(CKR_OK);
  });
}

CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                  CK_ULONG_PTR pulSignatureLen) noexcept {
  return withSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    PendingSignature pending(session);
    if (!pending.isThere()) return CKR_OPERATION_NOT_INITIALIZED;
    if (pulSignatureLen == nullptr) return CKR_ARGUMENTS_BAD;
    if (const auto room = checkRoom(pSignature, pulSignatureLen, pending.operation().length())) {
      return pending.keep(*room);
    }
    return deliver(pending, pSignature);
  });
}

}  // namespace brivasign::standard
