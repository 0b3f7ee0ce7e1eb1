#include "certcache/certcache.h"

#include <cstdlib>
#include <cstring>

#include "certcache/keyless_certificate.h"
#include "out_of_memory.h"
#include "product/product_folder.h"

namespace brivasign {
namespace {

constexpr const char* CACHE_FOLDER = "certificados/";
constexpr const char* CERTIFICATE_SUFFIX = ".cer";

}  // namespace

DirectoryPtr openCertificateDirectory() {
  return DirectoryPtr(opendir(productFilePath(CACHE_FOLDER).c_str()));
}

std::optional<std::int32_t> certificateIdFromName(const char* name) {
  if (std::strstr(name, CERTIFICATE_SUFFIX) == nullptr) return std::nullopt;
  return std::atoi(name);  // NOLINT(cert-err34-c): its leniency is the rule
}

std::string certificateFilePath(std::uint64_t id) {
  return productFilePath(CACHE_FOLDER + std::to_string(id) + CERTIFICATE_SUFFIX);
}

X509Ptr loadCertificate(std::uint64_t id) {
  const BioPtr file(BIO_new(BIO_s_file()));
  if (file == nullptr) throw OutOfMemory();
  if (BIO_read_filename(file.get(), certificateFilePath(id).c_str()) <= 0) return nullptr;
  return parseKeylessCertificate(file.get());
}

RawCertificateFile::RawCertificateFile(std::uint64_t id)
    : stream(certificateFilePath(id), std::ios::in | std::ios::binary | std::ios::ate),
      fileSize(static_cast<std::uint64_t>(std::streamoff(stream.tellg()))) {}

bool RawCertificateFile::read(unsigned char* destination, std::uint64_t length) {
  const auto wanted = static_cast<std::streamsize>(length);
  stream.seekg(0, std::ios::beg);
  stream.read(reinterpret_cast<char*>(destination), wanted);
  return stream.gcount() == wanted;
}

}  // namespace brivasign
