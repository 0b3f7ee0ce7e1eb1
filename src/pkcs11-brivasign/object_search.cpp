#include <cstdint>
#include <cstring>
#include <memory>

#include "certcache/certcache.h"
#include "certcache/object_handle.h"
#include "host_memory.h"
#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/module_state.h"
#include "pkcs11-brivasign/name_encoding.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11-brivasign/value_log.h"
#include "pkcs11.h"

// The search is one-shot: a template comes down to one class and at most one effective filter, and
// the first C_FindObjects delivers all that it will ever deliver.

namespace brivasign {
namespace {

// What the search dispatches on; the numbers differ from the CKO_ values.
constexpr std::int64_t FIND_CLASS_UNKNOWN = 0;
constexpr std::int64_t FIND_CLASS_DATA = 1;
constexpr std::int64_t FIND_CLASS_SECRET_KEY = 2;
constexpr std::int64_t FIND_CLASS_PUBLIC_KEY = 3;
constexpr std::int64_t FIND_CLASS_PRIVATE_KEY = 4;
constexpr std::int64_t FIND_CLASS_CERTIFICATE = 5;
constexpr std::int64_t FIND_CLASS_ANY = 100;

// Lengths in bytes; a filter that is absent is null.
struct FindState {
  std::uint64_t issuerLen;
  std::unique_ptr<CK_BYTE[]> issuer;
  std::uint64_t subjectLen;
  std::unique_ptr<CK_BYTE[]> subject;
  std::uint64_t valueLen;
  std::unique_ptr<CK_BYTE[]> value;
  std::uint64_t id;  // certificate identifier; 0: no filter
  std::uint8_t done;
};

std::int64_t findClass;

// Not destroyed at exit, because a host's exit handler may still search.
union SearchMemory {
  FindState state = {};
  ~SearchMemory() {}  // NOLINT(modernize-use-equals-default): the default would be deleted
};
SearchMemory searchMemory;
FindState& findState = searchMemory.state;

// Unloading the library releases the filters of an abandoned search.
[[gnu::destructor]] void releaseFilters() { findState = {}; }

// Appends the handles of certificate `id` to `phObject` at `count` when the certificate matches.
using Match = void (*)(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id);

void appendCertificate(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id) {
  phObject[count++] = certificateHandle(widened(id));
}

void appendPrivateKey(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id) {
  phObject[count++] = privateKeyHandle(widened(id));
}

// Appends the certificate and, in a search for any class, its key: a pair is never split, even
// where it exceeds the room that was offered by one handle.
void appendMatching(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id) {
  appendCertificate(phObject, count, id);
  if (findClass == FIND_CLASS_ANY) appendPrivateKey(phObject, count, id);
}

// Returns whether `name` begins with the filter. A DER name begins with its own length, so for any
// well-formed filter this means equality.
bool beginsWith(X509_NAME* name, const CK_BYTE* filter, std::uint64_t filterLen) {
  const NameEncoding encoding = encodeName(name);
  return encoding.length >= filterLen && std::memcmp(encoding.bytes.get(), filter, filterLen) == 0;
}

void matchIssuer(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id) {
  const X509Ptr certificate = loadCertificate(widened(id));
  if (certificate != nullptr && beginsWith(X509_get_issuer_name(certificate.get()),
                                           findState.issuer.get(), findState.issuerLen)) {
    appendMatching(phObject, count, id);
  }
}

void matchSubject(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id) {
  const X509Ptr certificate = loadCertificate(widened(id));
  if (certificate != nullptr && beginsWith(X509_get_subject_name(certificate.get()),
                                           findState.subject.get(), findState.subjectLen)) {
    appendMatching(phObject, count, id);
  }
}

// Unlike the names, a value never brings the key along: it describes the certificate alone.
void matchValue(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, std::int32_t id) {
  RawCertificateFile file(widened(id));
  if (file.size() != findState.valueLen) return;
  const std::unique_ptr<CK_BYTE[]> content(new CK_BYTE[findState.valueLen]);
  if (file.read(content.get(), findState.valueLen) &&
      std::memcmp(content.get(), findState.value.get(), findState.valueLen) == 0) {
    appendCertificate(phObject, count, id);
  }
}

// Lists the cache directory, in its own order, and hands the identifier of each certificate entry
// to `match` while `count` is below `max`. A directory that cannot be opened is empty.
void scanCertificates(Match match, CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, CK_ULONG max) {
  const DirectoryPtr directory = openCertificateDirectory();
  if (directory == nullptr) return;
  while (count < max) {
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) return;
    if (const auto id = certificateIdFromName(entry->d_name)) match(phObject, count, *id);
  }
}

// The filters do not apply to private keys, except the identifier.
void findPrivateKeys(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, CK_ULONG max) {
  if (max == 0) return;
  if (findState.id != 0) {
    phObject[count++] = privateKeyHandle(findState.id);
  } else {
    scanCertificates(appendPrivateKey, phObject, count, max);
  }
}

// Exactly one filter applies: issuer before subject before value before identifier.
void findCertificates(CK_OBJECT_HANDLE_PTR phObject, CK_ULONG& count, CK_ULONG max) {
  if (max == 0) return;
  if (findState.issuer != nullptr) {
    scanCertificates(matchIssuer, phObject, count, max);
  } else if (findState.subject != nullptr) {
    scanCertificates(matchSubject, phObject, count, max);
  } else if (findState.value != nullptr) {
    scanCertificates(matchValue, phObject, count, max);
  } else if (findState.id != 0) {
    phObject[count++] = certificateHandle(findState.id);
  } else {
    scanCertificates(appendMatching, phObject, count, max);
  }
}

// Returns the eight bytes at `attribute.pValue`, aligned or not, as a number.
CK_ULONG readUlong(const CK_ATTRIBUTE& attribute) {
  CK_ULONG value = 0;
  std::memcpy(&value, attribute.pValue, sizeof value);
  return value;
}

std::int64_t findClassOf(CK_OBJECT_CLASS objectClass) {
  switch (objectClass) {
    case CKO_DATA:
      return FIND_CLASS_DATA;
    case CKO_CERTIFICATE:
      return FIND_CLASS_CERTIFICATE;
    case CKO_PUBLIC_KEY:
      return FIND_CLASS_PUBLIC_KEY;
    case CKO_PRIVATE_KEY:
      return FIND_CLASS_PRIVATE_KEY;
    case CKO_SECRET_KEY:
      return FIND_CLASS_SECRET_KEY;
    default:
      logValue("Tipo de classe nao tratado em C_FindObjectsInit: %#8x\n", objectClass);
      return FIND_CLASS_UNKNOWN;
  }
}

// Replaces a filter with a copy of the attribute's value. Returns CKR_OK.
CK_RV copyFilter(const CK_ATTRIBUTE& attribute, std::uint64_t& length,
                 std::unique_ptr<CK_BYTE[]>& copy) {
  copy.reset(new CK_BYTE[attribute.ulValueLen]);
  length = attribute.ulValueLen;
  std::memcpy(copy.get(), attribute.pValue, length);
  return CKR_OK;
}

// Takes one entry of the template into the search state.
CK_RV takeAttribute(const CK_ATTRIBUTE& attribute) {
  if (!hasValue(attribute)) return CKR_ATTRIBUTE_VALUE_INVALID;
  switch (attribute.type) {
    case CKA_CLASS:
      if (attribute.ulValueLen != sizeof(CK_OBJECT_CLASS)) return CKR_ATTRIBUTE_VALUE_INVALID;
      findClass = findClassOf(readUlong(attribute));
      return CKR_OK;
    case CKA_TOKEN:
    case CKA_CERTIFICATE_TYPE:
      return CKR_OK;
    case CKA_VALUE:
      return copyFilter(attribute, findState.valueLen, findState.value);
    case CKA_ISSUER:
      return copyFilter(attribute, findState.issuerLen, findState.issuer);
    case CKA_SUBJECT:
      return copyFilter(attribute, findState.subjectLen, findState.subject);
    case CKA_ID:
      // Whatever length is announced: consumers pass back the eight bytes that they were given.
      findState.id = readUlong(attribute);
      return CKR_OK;
    default:
      logValue("Tipo de atributo nao tratado em C_FindObjectsInit: %#8x", attribute.type);
      return CKR_ATTRIBUTE_TYPE_INVALID;
  }
}

}  // namespace
}  // namespace brivasign

using namespace brivasign;

// A null template is refused even with a count of 0: a search for everything passes a pointer.
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                        CK_ULONG ulCount) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), operation(rules::FIND_OBJECTS_INIT),
                                         checkSession(hSession), arguments(pTemplate != nullptr))) {
    return refusal;
  }
  findClass = FIND_CLASS_ANY;
  findState = {};
  return orHostMemory([&] {
    for (CK_ULONG i = 0; i < ulCount; ++i) {
      if (const CK_RV refusal = takeAttribute(pTemplate[i])) return refusal;
    }
    return advance(rules::FIND_OBJECTS_INIT);
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                    CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) noexcept {
  if (const CK_RV refusal = firstRefusal(
          initialized(), operation(rules::FIND_OBJECTS), checkSession(hSession),
          arguments((ulMaxObjectCount == 0 || phObject != nullptr) && pulObjectCount != nullptr))) {
    return refusal;
  }
  *pulObjectCount = 0;
  if (findState.done != 0) return CKR_OK;

  findState.done = 1;
  return orHostMemory([&] {
    CK_ULONG count = 0;
    if (findClass == FIND_CLASS_PRIVATE_KEY) {
      findPrivateKeys(phObject, count, ulMaxObjectCount);
    } else if (findClass == FIND_CLASS_ANY || findClass == FIND_CLASS_CERTIFICATE) {
      findCertificates(phObject, count, ulMaxObjectCount);
    }
    *pulObjectCount = count;
    return CKR_OK;
  });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession) noexcept {
  if (const CK_RV refusal = firstRefusal(initialized(), operation(rules::FIND_OBJECTS_FINAL),
                                         checkSession(hSession))) {
    return refusal;
  }
  findState.issuer.reset();
  findState.subject.reset();
  findState.value.reset();
  return advance(rules::FIND_OBJECTS_FINAL);
}
