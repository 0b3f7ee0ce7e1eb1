#include <algorithm>
#include <span>

#include "certcache/object_handle.h"
#include "pkcs11-brivasign-standard/attributes.h"
#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"

namespace brivasign::standard {
namespace {

// Does `work` with the object of `handle`, where there is one.
template <class Work>
CK_RV withObject(Library& library, CK_OBJECT_HANDLE handle, Work work) {
  const auto name = objectName(handle);
  const CertificatePtr certificate = name ? library.certificates.find(name->id) : nullptr;
  if (certificate == nullptr ||
      (name->objectClass != CKO_CERTIFICATE && !certificate->hasRsaKey())) {
    return CKR_OBJECT_HANDLE_INVALID;
  }
  return work(Object{name->objectClass, *certificate});
}

}  // namespace

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                        CK_ULONG ulCount) noexcept {
  return withLockedSession(hSession, [&](Library& library, Session& session) -> CK_RV {
    if (!isReadable(pTemplate, ulCount)) return CKR_ARGUMENTS_BAD;
    if (session.find) return CKR_OPERATION_ACTIVE;
    const std::span<const CK_ATTRIBUTE> filter(pTemplate, ulCount);
    if (!std::all_of(filter.begin(), filter.end(), [](const CK_ATTRIBUTE& attribute) {
          return isReadable(attribute.pValue, attribute.ulValueLen);
        })) {
      return CKR_ATTRIBUTE_VALUE_INVALID;
    }
    session.find.emplace(library.certificates, filter);
    return CKR_OK;
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                    CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) noexcept {
  return withLockedSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    if (!session.find) return CKR_OPERATION_NOT_INITIALIZED;
    if (pulObjectCount == nullptr || !isReadable(phObject, ulMaxObjectCount)) {
      return CKR_ARGUMENTS_BAD;
    }
    *pulObjectCount = session.find->next({phObject, ulMaxObjectCount});
    return CKR_OK;
  });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession) noexcept {
  return withLockedSession(hSession, [&](Library& /*library*/, Session& session) -> CK_RV {
    if (!session.find) return CKR_OPERATION_NOT_INITIALIZED;
    session.find.reset();
    return CKR_OK;
  });
}

// Every entry is answered; of several failures the first is the result.
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) noexcept {
  return withSession(hSession, [&](Library& library, Session& /*session*/) -> CK_RV {
    if (!isReadable(pTemplate, ulCount)) return CKR_ARGUMENTS_BAD;
    return withObject(library, hObject, [&](const Object& object) {
      CK_RV result = CKR_OK;
      for (CK_ATTRIBUTE& attribute : std::span(pTemplate, ulCount)) {
        const CK_RV answer = answerAttribute(object, attribute);
        if (result == CKR_OK) result = answer;
      }
      return result;
    });
  });
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                      CK_ULONG_PTR pulSize) noexcept {
  return withSession(hSession, [&](Library& library, Session& /*session*/) -> CK_RV {
    if (pulSize == nullptr) return CKR_ARGUMENTS_BAD;
    return withObject(library, hObject, [&](const Object& /*object*/) -> CK_RV {
      *pulSize = CK_UNAVAILABLE_INFORMATION;
      return CKR_OK;
    });
  });
}

}  // namespace brivasign::standard
