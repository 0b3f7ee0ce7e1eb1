#include "pkcs11-brivasign-standard/library.h"

#include <openssl/crypto.h>
#include <unistd.h>

#include <atomic>
#include <string_view>

#include "log/version.h"
#include "pkcs11-brivasign-standard/entry_points.h"
#include "pkcs11-brivasign-standard/guarded_call.h"
#include "pkcs11-brivasign-standard/mutex.h"
#include "pkcs11-brivasign-standard/text_field.h"
#include "service/tls_settings.h"

namespace brivasign::standard {
namespace {

// Returns the number that `text` begins with.
constexpr CK_BYTE leadingNumber(std::string_view text) {
  unsigned number = 0;
  for (std::size_t i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number = number * 10 + static_cast<unsigned>(text[i] - '0');
  }
  return static_cast<CK_BYTE>(number);
}

constexpr std::string_view VERSION = MODULE_VERSION;
constexpr CK_VERSION LIBRARY_VERSION = {leadingNumber(VERSION),
                                        leadingNumber(VERSION.substr(VERSION.find('.') + 1))};

// The library as one process has it. A forked child inherits the parent's, whose lock may be held
// by a thread that the child does not have, and leaves it alone.
struct Process {
  const pid_t id = getpid();
  Mutex mutex;  // guards `library`
  std::shared_ptr<Library> library;
};

std::atomic<Process*> known;

// At the end of the process other threads may still call. Each of them either shows here in time
// for all that it uses to stay, or sees that it is over.
std::atomic<int> callsInProgress;
std::atomic<bool> isOver;

// Returns the process's own, null while it has none.
Process* thisProcess() {
  Process* const process = isOver ? nullptr : known.load();
  return process != nullptr && process->id == getpid() ? process : nullptr;
}

// Returns the process's own, made where it has none.
Process& madeProcess() {
  Process* process = known.load();
  if (process != nullptr && process->id == getpid()) return *process;
  auto made = std::make_unique<Process>();
  // Another thread may have been faster.
  return known.compare_exchange_strong(process, made.get()) ? *made.release() : *process;
}

// Unloading the library leaves nothing behind, whether it was finalised or not. Who still calls
// finds it not initialised.
[[gnu::destructor]] void end() {
  Process* const process = thisProcess();
  isOver = true;
  if (callsInProgress != 0) return;
  delete process;
  OPENSSL_cleanup();
}

// Tests what the caller says of threads: locks of its own are not used, the system's are.
CK_RV checkInitializeArguments(const CK_C_INITIALIZE_ARGS& arguments) {
  const int functions = (arguments.CreateMutex != nullptr) + (arguments.DestroyMutex != nullptr) +
                        (arguments.LockMutex != nullptr) + (arguments.UnlockMutex != nullptr);
  constexpr int ALL_FUNCTIONS = 4;
  if (arguments.pReserved != nullptr || (functions != 0 && functions != ALL_FUNCTIONS)) {
    return CKR_ARGUMENTS_BAD;
  }
  const bool mayLock = functions == 0 || (arguments.flags & CKF_OS_LOCKING_OK) != 0;
  return mayLock ? CKR_OK : CKR_CANT_LOCK;
}

}  // namespace

Call::Call() { ++callsInProgress; }

Call::~Call() { --callsInProgress; }

std::shared_ptr<Library> Call::library() const {
  Process* const process = thisProcess();
  if (process == nullptr) return nullptr;
  const std::scoped_lock lock(process->mutex);
  return process->library;
}

CK_RV C_Initialize(CK_VOID_PTR pInitArgs) noexcept {
  return orHostMemory([&]() -> CK_RV {
    if (pInitArgs != nullptr) {
      const auto& arguments = *static_cast<const CK_C_INITIALIZE_ARGS*>(pInitArgs);
      if (const CK_RV refusal = checkInitializeArguments(arguments)) return refusal;
    }
    const Call call;
    if (isOver) return CKR_GENERAL_ERROR;
    Process& process = madeProcess();
    const std::scoped_lock lock(process.mutex);
    if (process.library != nullptr) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    // Its own end would come while other threads may still call.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    startTlsLibrary();
    process.library = std::make_shared<Library>();
    return CKR_OK;
  });
}

CK_RV C_Finalize(CK_VOID_PTR pReserved) noexcept {
  const Call call;
  Process* const process = thisProcess();
  if (process == nullptr) return CKR_CRYPTOKI_NOT_INITIALIZED;
  // Calls in other threads go on with what they hold; the last one releases it.
  std::shared_ptr<Library> library;
  const std::scoped_lock lock(process->mutex);
  if (process->library == nullptr) return CKR_CRYPTOKI_NOT_INITIALIZED;
  if (pReserved != nullptr) return CKR_ARGUMENTS_BAD;
  library.swap(process->library);
  return CKR_OK;
}

CK_RV C_GetInfo(CK_INFO_PTR pInfo) noexcept {
  return withLibrary([&](Library& /*library*/) -> CK_RV {
    if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
    pInfo->cryptokiVersion = {2, 40};
    fillTextField(pInfo->manufacturerID, "KELMAR");
    pInfo->flags = 0;
    fillTextField(pInfo->libraryDescription, "Modulo PKCS#11 KELMAR Quorvent");
    pInfo->libraryVersion = LIBRARY_VERSION;
    return CKR_OK;
  });
}

}  // namespace brivasign::standard
