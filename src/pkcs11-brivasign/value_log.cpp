#include "pkcs11-brivasign/value_log.h"

#include <cstdint>
#include <cstdio>

#include "log/log.h"
#include "pkcs11-brivasign/module_state.h"

namespace brivasign {

void logValue(const char* format, CK_ULONG value) {
  std::snprintf(messageBuffer, sizeof messageBuffer, format, static_cast<std::uint32_t>(value));
  writeLog(messageBuffer);
}

}  // namespace brivasign
