#pragma once

#include "host_memory.h"
#include "pkcs11-brivasign-standard/library.h"
#include "pkcs11.h"

// How every entry point begins: it finds what it needs, and nothing is thrown into the caller.

namespace brivasign::standard {

constexpr CK_SLOT_ID SLOT_ID = 1;

// Does `work` with the library, where it is initialised.
template <class Work>
CK_RV withLibrary(Work work) noexcept {
  return orHostMemory([&]() -> CK_RV {
    const Call call;
    const auto library = call.library();
    return library == nullptr ? CKR_CRYPTOKI_NOT_INITIALIZED : work(*library);
  });
}

// Does `work` with the library, for the one slot.
template <class Work>
CK_RV withSlot(CK_SLOT_ID slot, Work work) noexcept {
  return withLibrary([&](Library& library) -> CK_RV {
    return slot == SLOT_ID ? work(library) : CKR_SLOT_ID_INVALID;
  });
}

// Does `work` with the library and the session of `handle`, which is not locked.
template <class Work>
CK_RV withSession(CK_SESSION_HANDLE handle, Work work) noexcept {
  return withLibrary([&](Library& library) -> CK_RV {
    const SessionPtr session = library.sessions.find(handle);
    return session == nullptr ? CKR_SESSION_HANDLE_INVALID : work(library, *session);
  });
}

// The same with the session locked.
template <class Work>
CK_RV withLockedSession(CK_SESSION_HANDLE handle, Work work) noexcept {
  return withSession(handle, [&](Library& library, Session& session) -> CK_RV {
    const std::scoped_lock lock(session.mutex);
    return work(library, session);
  });
}

// Returns whether `pointer` may be followed for `length` items.
constexpr bool isReadable(const void* pointer, CK_ULONG length) {
  return pointer != nullptr || length == 0;
}

}  // namespace brivasign::standard
