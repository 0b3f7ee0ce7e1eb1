#pragma once

#include <memory>
#include <optional>

#include "pkcs11-brivasign-standard/digest_operation.h"
#include "pkcs11-brivasign-standard/find_operation.h"
#include "pkcs11-brivasign-standard/mutex.h"
#include "pkcs11-brivasign-standard/sign_operation.h"

namespace brivasign::standard {

// The operations of one session, at most one of each kind.
struct Session {
  explicit Session(bool readWrite) : isReadWrite(readWrite) {}

  const bool isReadWrite;

  Mutex mutex;  // guards what follows
  std::optional<FindOperation> find;
  std::optional<DigestOperation> digest;
  std::unique_ptr<SignOperation> sign;
  // While the user is asked: `sign` is then in use without the lock, and stays as it is.
  bool isSigning = false;
};

using SessionPtr = std::shared_ptr<Session>;

}  // namespace brivasign::standard
