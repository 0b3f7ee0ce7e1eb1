#pragma once

#include <cstddef>
#include <cstdint>

#include "pkcs11.h"

// The process-wide memory of the module: one session, one operation at a time. Everything is zero
// when the library is loaded and guarded by no lock, because callers serialise their calls.

namespace brivasign {

static_assert(sizeof(CK_ULONG) == 8, "handles, lengths and identifiers have 64 bits");

constexpr CK_SLOT_ID SLOT_ID = 1;
constexpr CK_SESSION_HANDLE SESSION_HANDLE = 1;

constexpr std::uint32_t OP_NONE = 0;
constexpr std::uint32_t OP_FIND = 1;
constexpr std::uint32_t OP_ENCRYPT = 2;
constexpr std::uint32_t OP_DECRYPT = 3;
constexpr std::uint32_t OP_DIGEST = 4;
constexpr std::uint32_t OP_SIGN = 5;
constexpr std::uint32_t OP_SIGN_RECOVER = 6;
constexpr std::uint32_t OP_VERIFY = 7;
constexpr std::uint32_t OP_VERIFY_RECOVER = 8;
constexpr std::uint32_t OP_DIGEST_ENCRYPT = 9;
constexpr std::uint32_t OP_DECRYPT_DIGEST = 10;
constexpr std::uint32_t OP_SIGN_ENCRYPT = 11;
constexpr std::uint32_t OP_DECRYPT_VERIFY = 12;

// 1 from C_Initialize to C_Finalize.
extern std::uint8_t moduleInitialized;

// 1 from C_OpenSession to C_CloseAllSessions; neither C_CloseSession nor C_Finalize clears it.
extern std::uint8_t sessionOpen;

// Login state of the session, one of the CKS_ values.
extern CK_STATE sessionState;

// The operation in progress, one of the OP_ codes.
extern std::uint32_t activeOperation;

// Identifier of the certificate whose key signs, as C_SignInit took it from the key handle.
extern std::uint64_t signCertificateId;

// Parameters of a CKM_RSA_PKCS_PSS signature, the caller's own structure, or null.
extern const CK_RSA_PKCS_PSS_PARAMS* signPssParams;

// Where log messages that carry a value are formatted.
constexpr std::size_t MESSAGE_BUFFER_SIZE = 512;
extern char messageBuffer[MESSAGE_BUFFER_SIZE];

}  // namespace brivasign
