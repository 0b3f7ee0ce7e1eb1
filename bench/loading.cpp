#include "loading.h"

#include <dlfcn.h>

#include "pkcs11.h"
#include "require.h"
#include "token.h"

namespace bench {
namespace {

// A library that stays behind would make the next round a mere count.
void requireUnloaded(const char* path) {
  require(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr, "a library has not been unloaded");
}

}  // namespace

void loadModule(const char* path) {
  { const TokenLibrary module(path); }
  requireUnloaded(path);
}

void loadEmptyLibrary(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  require(library != nullptr, "the empty library cannot be loaded");
  const auto initialize = reinterpret_cast<CK_C_Initialize>(dlsym(library, "C_Initialize"));
  const auto finalize = reinterpret_cast<CK_C_Finalize>(dlsym(library, "C_Finalize"));
  require(initialize != nullptr && initialize(nullptr) == CKR_OK && finalize(nullptr) == CKR_OK,
          "the empty library does not work");
  dlclose(library);
  requireUnloaded(path);
}

}  // namespace bench
