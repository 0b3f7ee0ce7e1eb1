#include "brivasign_check/x509_text.h"

#include <array>

namespace diagnosis {
namespace {

std::string contentOf(BIO* memory) {
  char* data = nullptr;
  const long length = BIO_get_mem_data(memory, &data);
  return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

std::string nameText(X509_NAME* name) {
  const brivasign::BioPtr memory(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(memory.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
  return contentOf(memory.get());
}

std::string timeText(const std::tm& utc) {
  std::array<char, sizeof "2026-11-21T12:38:27Z"> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

std::string timeText(const ASN1_TIME* time) {
  std::tm utc = {};
  return ASN1_TIME_to_tm(time, &utc) != 0 ? timeText(utc) : "unreadable";
}

int compareValidity(const X509* certificate) {
  // An unreadable time compares as 0, and counts as a bad end of the validity.
  if (X509_cmp_current_time(X509_get0_notAfter(certificate)) <= 0) return -1;
  return X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0 ? 1 : 0;
}

}  // namespace diagnosis
