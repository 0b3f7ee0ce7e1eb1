#pragma once

#include <memory>

#include "pkcs11-brivasign-standard/certificate_store.h"
#include "pkcs11-brivasign-standard/session_registry.h"

namespace brivasign::standard {

// All that there is between C_Initialize and C_Finalize. A call keeps it alive until it is over.
struct Library {
  SessionRegistry sessions;
  CertificateStore certificates;
};

// One call of the library. As long as it lasts nothing that it uses goes.
class Call {
 public:
  Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call();

  // Returns the library of this process; null while it is not initialised, as in a process that has
  // been forked since.
  [[nodiscard]] std::shared_ptr<Library> library() const;
};

}  // namespace brivasign::standard
