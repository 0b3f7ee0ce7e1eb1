#pragma once

#include <map>
#include <optional>

#include "pkcs11-brivasign-standard/mutex.h"
#include "pkcs11-brivasign-standard/session.h"
#include "pkcs11.h"

namespace brivasign::standard {

// The open sessions and who is logged in, which all of them share. Any thread may call at any time.
// A session that is closed while a call uses it lives until that call is over. Throws where
// memory runs out.
class SessionRegistry {
 public:
  struct Counts {
    CK_ULONG all;
    CK_ULONG readWrite;
  };

  // Opens a session into `handle`, which no other session of this registry has had. Returns CKR_OK
  // or CKR_SESSION_READ_WRITE_SO_EXISTS.
  CK_RV open(bool readWrite, CK_SESSION_HANDLE& handle);

  // Returns the session of `handle`; null when there is none.
  SessionPtr find(CK_SESSION_HANDLE handle);

  // Closes the session of `handle`; with the last one the login ends. Returns whether there is one.
  bool close(CK_SESSION_HANDLE handle);

  void closeAll();

  Counts counts();

  // Returns the state of `session`, one of the CKS_ values.
  CK_STATE stateOf(const Session& session);

  // Logs `user`, CKU_SO or CKU_USER, in through the session of `handle`. Returns CKR_OK,
  // CKR_SESSION_HANDLE_INVALID, CKR_USER_ALREADY_LOGGED_IN, CKR_USER_ANOTHER_ALREADY_LOGGED_IN or
  // CKR_SESSION_READ_ONLY_EXISTS.
  CK_RV login(CK_SESSION_HANDLE handle, CK_USER_TYPE user);

  // Returns CKR_OK, CKR_SESSION_HANDLE_INVALID or CKR_USER_NOT_LOGGED_IN.
  CK_RV logout(CK_SESSION_HANDLE handle);

 private:
  // With the lock held.
  [[nodiscard]] CK_ULONG readWriteCount() const;

  Mutex mutex_;
  std::map<CK_SESSION_HANDLE, SessionPtr> sessions_;
  CK_SESSION_HANDLE lastHandle_ = 0;
  std::optional<CK_USER_TYPE> user_;
};

}  // namespace brivasign::standard
