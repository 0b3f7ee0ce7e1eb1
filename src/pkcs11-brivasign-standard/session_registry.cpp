#include "pkcs11-brivasign-standard/session_registry.h"

#include <algorithm>

namespace brivasign::standard {

CK_RV SessionRegistry::open(bool readWrite, CK_SESSION_HANDLE& handle) {
  auto session = std::make_shared<Session>(readWrite);
  const std::scoped_lock lock(mutex_);
  if (user_ == CKU_SO && !readWrite) return CKR_SESSION_READ_WRITE_SO_EXISTS;
  sessions_.emplace(lastHandle_ + 1, std::move(session));
  handle = ++lastHandle_;
  return CKR_OK;
}

SessionPtr SessionRegistry::find(CK_SESSION_HANDLE handle) {
  const std::scoped_lock lock(mutex_);
  const auto found = sessions_.find(handle);
  return found == sessions_.end() ? nullptr : found->second;
}

bool SessionRegistry::close(CK_SESSION_HANDLE handle) {
  const std::scoped_lock lock(mutex_);
  const bool isClosed = sessions_.erase(handle) != 0;
  if (sessions_.empty()) user_.reset();
  return isClosed;
}

void SessionRegistry::closeAll() {
  const std::scoped_lock lock(mutex_);
  sessions_.clear();
  user_.reset();
}

SessionRegistry::Counts SessionRegistry::counts() {
  const std::scoped_lock lock(mutex_);
  return {sessions_.size(), readWriteCount()};
}

CK_STATE SessionRegistry::stateOf(const Session& session) {
  const std::scoped_lock lock(mutex_);
  if (user_ == CKU_SO) return CKS_RW_SO_FUNCTIONS;
  if (session.isReadWrite) return user_ ? CKS_RW_USER_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
  return user_ ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION;
}

CK_RV SessionRegistry::login(CK_SESSION_HANDLE handle, CK_USER_TYPE user) {
  const std::scoped_lock lock(mutex_);
  if (!sessions_.contains(handle)) return CKR_SESSION_HANDLE_INVALID;
  if (user_ == user) return CKR_USER_ALREADY_LOGGED_IN;
  if (user_) return CKR_USER_ANOTHER_ALREADY_LOGGED_IN;
  if (user == CKU_SO && readWriteCount() != sessions_.size()) return CKR_SESSION_READ_ONLY_EXISTS;
  user_ = user;
  return CKR_OK;
}

CK_RV SessionRegistry::logout(CK_SESSION_HANDLE handle) {
  const std::scoped_lock lock(mutex_);
  if (!sessions_.contains(handle)) return CKR_SESSION_HANDLE_INVALID;
  if (!user_) return CKR_USER_NOT_LOGGED_IN;
  user_.reset();
  return CKR_OK;
}

CK_ULONG SessionRegistry::readWriteCount() const {
  return static_cast<CK_ULONG>(
      std::count_if(sessions_.begin(), sessions_.end(),
                    [](const auto& entry) { return entry.second->isReadWrite; }));
}

}  // namespace brivasign::standard
