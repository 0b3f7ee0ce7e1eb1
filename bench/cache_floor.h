#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "pkcs11.h"

namespace bench {

// The least that a program must do for the module's answers about cached certificates: the calls of
// the system and of the TLS library that cannot be avoided, and nothing that PKCS#11 adds.
class [[gnu::visibility("default")]] CacheFloor {
 public:
  // For the certificates in the folder `cache`, which ends with a slash.
  explicit CacheFloor(std::string cache);
  CacheFloor(const CacheFloor&) = delete;
  CacheFloor& operator=(const CacheFloor&) = delete;
  ~CacheFloor();

  // Reads all identifiers. Returns how many there are.
  [[nodiscard]] std::size_t list() const;

  // Returns how many certificates have the subject `name`, in DER.
  [[nodiscard]] std::size_t countSubject(const std::string& name) const;

  // Returns how many certificate files have the content `value`.
  [[nodiscard]] std::size_t countValue(const std::string& value) const;

  // Reads what the `count` entries at `attributes` ask about certificate `id`, as the module would;
  // each has room enough.
  void read(std::uint64_t id, CK_ATTRIBUTE * attributes, std::size_t count) const;

 private:
  struct Parser;

  std::string cache_;
  std::unique_ptr<Parser> parser_;
};

}  // namespace bench
