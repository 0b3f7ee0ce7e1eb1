/* The Cryptoki interface, PKCS#11 v2.20 and v2.40: types and constants, the function declarations
 * and the function table, the last two generated from the one list in pkcs11f.h. */

#ifndef PKCS11_H
#define PKCS11_H

#include "pkcs11t.h"

#ifdef __cplusplus
extern "C" {
#define CK_NOTHROW noexcept
#else
#define CK_NOTHROW
#endif

/* Everything else in the module is compiled with hidden visibility. */
#define CK_EXPORTED __attribute__((visibility("default")))

#define CK_FUNCTION_ENTRY(name, arguments) CK_EXPORTED CK_RV name arguments CK_NOTHROW;
#include "pkcs11f.h"
#undef CK_FUNCTION_ENTRY

#define CK_FUNCTION_ENTRY(name, arguments) typedef CK_RV(*CK_##name) arguments;
#include "pkcs11f.h"
#undef CK_FUNCTION_ENTRY

struct CK_FUNCTION_LIST {
  CK_VERSION version;
#define CK_FUNCTION_ENTRY(name, arguments) CK_##name name;
#include "pkcs11f.h"
#undef CK_FUNCTION_ENTRY
};

#ifdef __cplusplus
}
#endif

#endif
