#include "cache_floor.h"

#include <dirent.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/objects.h>
#include <openssl/provider.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>
#include <utility>

#include "local_signing_service/private_key.h"
#include "require.h"

namespace bench {
namespace {

using localservice::OpensslHandle;
using Directory = OpensslHandle<DIR, closedir>;
using File = OpensslHandle<BIO, BIO_free>;
using Number = OpensslHandle<BIGNUM, BN_free>;
using Certificate = OpensslHandle<X509, X509_free>;

// Calls `use` with the identifier of each certificate in `folder`. The two entries of the folder
// itself are known by their first character.
template <typename Use>
void forEachIdentifier(const std::string& folder, Use use) {
  const Directory directory(opendir(folder.c_str()));
  require(directory != nullptr, "the certificates cannot be listed");
  while (const dirent* const entry = readdir(directory.get())) {
    if (entry->d_name[0] == '.') continue;
    use(std::atoi(entry->d_name));  // NOLINT(cert-err34-c): as lenient as the module
  }
}

std::string filePath(const std::string& cache, std::uint64_t id) {
  return cache + std::to_string(id) + ".cer";
}

// Returns a stream at the end of the file of certificate `id`.
std::ifstream openAtEnd(const std::string& cache, std::uint64_t id) {
  return std::ifstream(filePath(cache, id), std::ios::in | std::ios::binary | std::ios::ate);
}

// Calls `use` with the bytes of `name` in DER and returns its result.
template <typename Use>
auto withEncoding(X509_NAME* name, Use use) {
  unsigned char* encoding = nullptr;
  const auto length = static_cast<std::size_t>(i2d_X509_NAME(name, &encoding));
  const auto result = use(std::string_view(reinterpret_cast<const char*>(encoding), length));
  OPENSSL_free(encoding);
  return result;
}

// Each of these writes a value to `output`, which has room for it, and returns its length in bytes.

CK_ULONG write(std::string_view value, void* output) {
  std::memcpy(output, value.data(), value.size());
  return value.size();
}

CK_ULONG writeString(const ASN1_STRING* value, void* output) {
  return write({reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
                static_cast<std::size_t>(ASN1_STRING_length(value))},
               output);
}

CK_ULONG writeName(X509_NAME* name, void* output) {
  return withEncoding(name, [&](std::string_view encoding) { return write(encoding, output); });
}

CK_ULONG writeLabel(const X509* certificate, void* output) {
  const Number serial(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
  char* const decimal = BN_bn2dec(serial.get());
  const CK_ULONG length = write(decimal, output);
  OPENSSL_free(decimal);
  X509_NAME* const subject = X509_get_subject_name(certificate);
  const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  const ASN1_STRING* const name = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
  return length + writeString(name, static_cast<char*>(output) + length);
}

CK_ULONG writeFile(std::ifstream file, void* output) {
  const std::streamoff length = file.tellg();
  file.seekg(0).read(static_cast<char*>(output), length);
  require(file.gcount() == length, "a certificate cannot be read");
  return static_cast<CK_ULONG>(length);
}

}  // namespace

// A context of the TLS library in which there is no decoder for a public key, which nobody asks
// for.
struct CacheFloor::Parser {
  Parser() : library(OSSL_LIB_CTX_new()), provider(OSSL_PROVIDER_load(library, "null")) {
    require(provider != nullptr, "the TLS library cannot be set up");
  }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;
  ~Parser() {
    OSSL_PROVIDER_unload(provider);
    OSSL_LIB_CTX_free(library);
  }

  [[nodiscard]] Certificate load(const std::string& file) const {
    const File source(BIO_new(BIO_s_file()));
    require(BIO_read_filename(source.get(), file.c_str()) > 0, "a certificate is missing");
    X509* certificate = X509_new_ex(library, nullptr);
    require(d2i_X509_bio(source.get(), &certificate) != nullptr, "a certificate cannot be parsed");
    return Certificate(certificate);
  }

  OSSL_LIB_CTX* library;
  OSSL_PROVIDER* provider;
};

CacheFloor::CacheFloor(std::string cache) : cache_(std::move(cache)) {
  // Like the module, without the system's configuration file.
  OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
  parser_ = std::make_unique<Parser>();
}

CacheFloor::~CacheFloor() = default;

std::size_t CacheFloor::list() const {
  std::size_t count = 0;
  int highest = 0;
  forEachIdentifier(cache_, [&](int id) {
    highest = std::max(highest, id);
    ++count;
  });
  require(highest == static_cast<int>(count), "the identifiers are not those of this run");
  return count;
}

std::size_t CacheFloor::countSubject(const std::string& name) const {
  std::size_t matches = 0;
  forEachIdentifier(cache_, [&](int id) {
    const Certificate certificate = parser_->load(filePath(cache_, static_cast<std::uint64_t>(id)));
    matches += withEncoding(X509_get_subject_name(certificate.get()),
                            [&](std::string_view encoding) { return encoding == name ? 1U : 0U; });
  });
  return matches;
}

std::size_t CacheFloor::countValue(const std::string& value) const {
  std::size_t matches = 0;
  std::string content(value.size(), '\0');
  forEachIdentifier(cache_, [&](int id) {
    std::ifstream file = openAtEnd(cache_, static_cast<std::uint64_t>(id));
    if (file.tellg() != static_cast<std::streamoff>(value.size())) return;
    file.seekg(0).read(content.data(), static_cast<std::streamsize>(content.size()));
    if (content == value) ++matches;
  });
  return matches;
}

void CacheFloor::read(std::uint64_t id, CK_ATTRIBUTE* attributes, std::size_t count) const {
  const Certificate certificate = parser_->load(filePath(cache_, id));
  for (std::size_t i = 0; i < count; ++i) {
    void* const value = attributes[i].pValue;
    CK_ULONG& length = attributes[i].ulValueLen;
    switch (attributes[i].type) {
      case CKA_LABEL:
        length = writeLabel(certificate.get(), value);
        break;
      case CKA_SUBJECT:
        length = writeName(X509_get_subject_name(certificate.get()), value);
        break;
      case CKA_ISSUER:
        length = writeName(X509_get_issuer_name(certificate.get()), value);
        break;
      case CKA_SERIAL_NUMBER:
        length = writeString(X509_get0_serialNumber(certificate.get()), value);
        break;
      case CKA_VALUE:
        length = writeFile(openAtEnd(cache_, id), value);
        break;
      default:  // class, type and identifier are known without the certificate
        std::memcpy(value, &id, sizeof id);
        length = sizeof id;
    }
  }
}

}  // namespace bench
