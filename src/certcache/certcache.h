#pragma once

#include <dirent.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "openssl_handles.h"

// The certificate cache: one DER file per certificate, named by its identifier, in the folder
// "certificados" of the product folder. The companion application writes it at any time; it is only
// read here, and read afresh on every call.

namespace brivasign {

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryPtr = std::unique_ptr<DIR, DirectoryCloser>;

// Opens the cache directory for listing. Returns null when it cannot be opened.
DirectoryPtr openCertificateDirectory();

// Returns the identifier of the directory entry `name` (zero-terminated), or nothing when it is no
// certificate entry. The rule is lenient: ".cer" anywhere in the name makes an entry, and the
// identifier is what atoi makes of the whole name.
std::optional<std::int32_t> certificateIdFromName(const char* name);

// Widens an identifier read from a directory entry with its sign: so objects and files are named.
constexpr std::uint64_t widened(std::int32_t id) {
  return static_cast<std::uint64_t>(std::int64_t{id});
}

// Returns the full path of the file of certificate `id`; empty when HOME is unset.
std::string certificateFilePath(std::uint64_t id);

// Reads and parses the file of certificate `id`; its public key stays encoded. Returns null when
// the file is missing, unreadable or does not begin with a DER certificate.
X509Ptr loadCertificate(std::uint64_t id);

// The bytes of a certificate file exactly as stored, whatever follows the certificate included.
class RawCertificateFile {
 public:
  // Opens the file of certificate `id` and takes its size.
  explicit RawCertificateFile(std::uint64_t id);

  // Returns the size in bytes when the file was opened; all bits set when it could not be.
  [[nodiscard]] std::uint64_t size() const { return fileSize; }

  // Reads the first `length` bytes into `destination`. Returns whether all of them came.
  bool read(unsigned char* destination, std::uint64_t length);

 private:
  std::ifstream stream;
  std::uint64_t fileSize;
};

}  // namespace brivasign
