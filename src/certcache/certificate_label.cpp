#include "certcache/certificate_label.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/objects.h>

#include <algorithm>
#include <cstring>

#include "out_of_memory.h"

namespace brivasign {
namespace {

constexpr std::size_t COMMON_NAME_LIMIT = 999;  // bytes

// Returns the subject's first common name; empty when there is none.
std::string commonNameOf(const X509* certificate, NameForm form) {
  X509_NAME* const subject = X509_get_subject_name(certificate);
  const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  const X509_NAME_ENTRY* const entry = X509_NAME_get_entry(subject, index);
  if (entry == nullptr) return {};
  const ASN1_STRING* const value = X509_NAME_ENTRY_get_data(entry);
  if (form == NameForm::UTF8) {
    unsigned char* bytes = nullptr;
    const int size = ASN1_STRING_to_UTF8(&bytes, value);
    const OpensslBytes owner(bytes);
    return size < 0 ? "" : std::string(bytes, bytes + size);
  }
  const auto* const text = reinterpret_cast<const char*>(ASN1_STRING_get0_data(value));
  const auto length = static_cast<std::size_t>(ASN1_STRING_length(value));
  return {text, strnlen(text, std::min(length, COMMON_NAME_LIMIT))};
}

}  // namespace

std::string certificateLabel(const X509* certificate, NameForm form) {
  const BignumPtr serial(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
  const OpensslText decimal(serial == nullptr ? nullptr : BN_bn2dec(serial.get()));
  if (decimal == nullptr) throw OutOfMemory();
  return std::string("(")
      .append(decimal.get())
      .append(") ")
      .append(commonNameOf(certificate, form));
}

}  // namespace brivasign
