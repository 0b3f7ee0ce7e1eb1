#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "certcache/file_stamp.h"
#include "pkcs11-brivasign-standard/certificate.h"

namespace brivasign::standard {

// The certificates of the cache folder as it is now. What has been parsed is kept for as long as
// its file stays the same; whether it does is looked at in each call. Any thread may call at any
// time. May throw std::bad_alloc.
class CertificateStore {
 public:
  // Returns the certificate of number `id`; null when its file is missing or holds none.
  CertificatePtr find(std::uint64_t id);

  // Returns all that there are, in the order of their numbers.
  std::vector<CertificatePtr> list();

 private:
  struct Entry {
    FileStamp stamp;
    CertificatePtr certificate;  // null: the file holds none
  };

  // Returns the certificate of number `id` in the file `name`, a path or in the folder open as
  // `folder`.
  CertificatePtr read(std::uint64_t id, int folder, const char* name);

  // Forgets all but `numbers`, which are in order.
  void keepOnly(const std::vector<std::uint64_t>& numbers);

  std::mutex mutex_;
  std::unordered_map<std::uint64_t, Entry> entries_;  // by number
};

}  // namespace brivasign::standard
