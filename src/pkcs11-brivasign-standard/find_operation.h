#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "pkcs11-brivasign-standard/certificate_store.h"
#include "pkcs11.h"

namespace brivasign::standard {

// One search: what it found when it began, and how much of that has been handed out.
class FindOperation {
 public:
  // Searches for the objects that have every attribute of `filter`, each with a value where its
  // length is not 0. Throws where memory runs out.
  FindOperation(CertificateStore& certificates, std::span<const CK_ATTRIBUTE> filter);

  // Hands out handles until `destination` is full or there are no more. Returns how many.
  std::size_t next(std::span<CK_OBJECT_HANDLE> destination);

 private:
  std::vector<CK_OBJECT_HANDLE> found_;
  std::size_t handedOut_ = 0;
};

}  // namespace brivasign::standard
