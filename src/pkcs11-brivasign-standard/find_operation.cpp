#include "pkcs11-brivasign-standard/find_operation.h"

#include <cstring>
#include <string_view>

#include "certcache/object_handle.h"
#include "pkcs11-brivasign-standard/attributes.h"

namespace brivasign::standard {
namespace {

using Filter = std::span<const CK_ATTRIBUTE>;

std::string_view bytesOf(const CK_ATTRIBUTE& attribute) {
  return {static_cast<const char*>(attribute.pValue), attribute.ulValueLen};
}

// What is sensitive matches nothing, or its value could be found out.
bool matches(const Object& object, Filter filter) {
  return std::all_of(filter.begin(), filter.end(), [&](const CK_ATTRIBUTE& wanted) {
    const auto value = attributeOf(object, wanted.type);
    return value && !std::holds_alternative<Sensitive>(*value) &&
           bytesOf(*value) == bytesOf(wanted);
  });
}

// Returns the number that an entry of type `type` in `filter` asks for; nothing when there is no
// such entry, or none of a number's length.
std::optional<CK_ULONG> wantedNumber(Filter filter, CK_ATTRIBUTE_TYPE type) {
  const auto found =
      std::find_if(filter.begin(), filter.end(), [type](const CK_ATTRIBUTE& attribute) {
        return attribute.type == type && attribute.ulValueLen == sizeof(CK_ULONG);
      });
  if (found == filter.end()) return std::nullopt;
  CK_ULONG number = 0;
  std::memcpy(&number, found->pValue, sizeof number);
  return number;
}

// Returns the certificates whose objects `filter` may match.
std::vector<CertificatePtr> candidates(CertificateStore& certificates, Filter filter) {
  const auto objectClass = wantedNumber(filter, CKA_CLASS);
  // Applications ask for many a class that no token but their own has.
  if (objectClass && *objectClass != CKO_CERTIFICATE && *objectClass != CKO_PRIVATE_KEY &&
      *objectClass != CKO_PUBLIC_KEY) {
    return {};
  }
  const auto id = wantedNumber(filter, CKA_ID);
  return id ? std::vector{certificates.find(*id)} : certificates.list();
}

}  // namespace

FindOperation::FindOperation(CertificateStore& certificates, Filter filter) {
  for (const CertificatePtr& certificate : candidates(certificates, filter)) {
    if (certificate == nullptr) continue;
    for (const CK_OBJECT_CLASS objectClass : {CKO_CERTIFICATE, CKO_PRIVATE_KEY, CKO_PUBLIC_KEY}) {
      if (objectClass != CKO_CERTIFICATE && !certificate->hasRsaKey()) break;
      if (matches({objectClass, *certificate}, filter)) {
        found_.push_back(objectHandle({objectClass, certificate->id}));
      }
    }
  }
}

std::size_t FindOperation::next(std::span<CK_OBJECT_HANDLE> destination) {
  const std::size_t count = std::min(destination.size(), found_.size() - handedOut_);
  std::copy_n(found_.begin() + static_cast<std::ptrdiff_t>(handedOut_), count, destination.begin());
  handedOut_ += count;
  return count;
}

}  // namespace brivasign::standard
