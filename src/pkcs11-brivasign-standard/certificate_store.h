#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "certcache/file_stamp.h"
#include "certcache/keyless_certificate.h"
#include "pkcs11-brivasign-standard/certificate.h"
#include "pkcs11-brivasign-standard/mutex.h"

namespace brivasign::standard {

// The certificates of the cache folder as it is now. What has been parsed is kept for as long as
// its file stays the same; whether it does is looked at in each call. Any thread may call at any
// time. Throws where memory runs out.
class CertificateStore {
 public:
  // Returns the certificate of number `id`, any number; null when its file is missing or holds
  // none.
  CertificatePtr find(std::uint64_t id);

  // Returns all that there are, in the order of their numbers.
  std::vector<CertificatePtr> list();

 private:
  struct Entry {
    FileStamp stamp;
    CertificatePtr certificate;
  };

  // Forgets all but `numbers`, which are sorted.
  void keepOnly(const std::vector<std::uint64_t>& numbers);

  const KeylessContext context_;
  Mutex mutex_;
  std::map<std::uint64_t, Entry> entries_;  // by number
};

}  // namespace brivasign::standard
