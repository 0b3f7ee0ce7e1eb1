#include "certificates.h"

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "local_signing_service/private_key.h"
#include "require.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using localservice::OpensslHandle;
using Certificate = OpensslHandle<X509, X509_free>;
using Name = OpensslHandle<X509_NAME, X509_NAME_free>;

// Added to each number, so that all serial numbers and names are equally long.
constexpr std::uint64_t FIRST_SERIAL_NUMBER = 0x1000'0000'0000'0000;
constexpr std::size_t FIRST_NAME = 10'000;

Name subjectOf(std::size_t number) {
  Name name(X509_NAME_new());
  const auto add = [&](const char* field, const std::string& value) {
    X509_NAME_add_entry_by_txt(name.get(), field, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0);
  };
  add("C", "BR");
  add("O", "Quorvent Local");
  add("CN", "Maria Exemplo " + std::to_string(FIRST_NAME + number));
  return name;
}

std::string encode(X509* certificate) {
  unsigned char* bytes = nullptr;
  const int length = i2d_X509(certificate, &bytes);
  require(length > 0, "a certificate cannot be encoded");
  std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  OPENSSL_free(bytes);
  return der;
}

}  // namespace

std::vector<std::string> makeCertificates(const fs::path& pki, std::size_t count) {
  const std::string model = localservice::readFile(pki / "users/1001.cer");
  const auto key = localservice::loadPrivateKey(pki / "users/1001.key");
  const auto* next = reinterpret_cast<const unsigned char*>(model.data());
  const Certificate certificate(d2i_X509(nullptr, &next, static_cast<long>(model.size())));
  require(certificate != nullptr, "the certificate of user 1001 cannot be read");

  std::vector<std::string> all;
  for (std::size_t number = 0; number < count; ++number) {
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), FIRST_SERIAL_NUMBER + number);
    X509_set_subject_name(certificate.get(), subjectOf(number).get());
    require(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0,
            "a certificate cannot be signed");
    all.push_back(encode(certificate.get()));
  }
  return all;
}

}  // namespace bench
