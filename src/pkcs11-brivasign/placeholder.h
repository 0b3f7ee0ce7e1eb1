#pragma once

#include <algorithm>
#include <array>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11-brivasign/operation.h"
#include "pkcs11.h"

// What the placeholder functions share. The token only signs; the rest of the function list answers
// with a fixed imitation that performs no cryptography, so that consumers which probe or test the
// whole list keep their usual sequence of calls.

namespace brivasign {

// The imitation's own objects, unrelated to the handles that a search delivers.
constexpr CK_OBJECT_HANDLE MOCK_OBJECT = 1;
constexpr CK_OBJECT_HANDLE MOCK_SECRET_KEY = 2;
constexpr CK_OBJECT_HANDLE MOCK_PUBLIC_KEY = 3;
constexpr CK_OBJECT_HANDLE MOCK_PRIVATE_KEY = 4;

// The signature of every path that does not reach the signing service.
inline constexpr std::array<CK_BYTE, 10> MOCK_SIGNATURE = {0x00, 0x01, 0x02, 0x03, 0x04,
                                                           0x05, 0x06, 0x07, 0x08, 0x09};

// Answers with the fixed `value`: with a null `output` only `*outputLen` (bytes) is set; a buffer
// below the value's length is refused with CKR_BUFFER_TOO_SMALL.
template <std::size_t LENGTH>
CK_RV putFixedValue(const std::array<CK_BYTE, LENGTH>& value, CK_BYTE_PTR output,
                    CK_ULONG_PTR outputLen) {
  if (output != nullptr) {
    if (*outputLen < LENGTH) return CKR_BUFFER_TOO_SMALL;
    std::copy(value.begin(), value.end(), output);
  }
  *outputLen = LENGTH;
  return CKR_OK;
}

// The ten functions that transform bytes: writes each of the `inputLen` bytes of `input` under a
// fixed mask to `output`, which may be `input` itself, and moves the state as `rule` says. With a
// null `output` only `*outputLen` (bytes) is set.
CK_RV transformBytes(const OperationRule& rule, CK_SESSION_HANDLE hSession, const CK_BYTE* input,
                     CK_ULONG inputLen, CK_BYTE_PTR output, CK_ULONG_PTR outputLen);

// The functions that accept data in the state of `rule` and ignore it.
inline CK_RV acceptBytes(const OperationRule& rule, CK_SESSION_HANDLE hSession, const CK_BYTE* data,
                         CK_ULONG dataLen) {
  return firstRefusal(initialized(), operation(rule), checkSession(hSession),
                      arguments(data != nullptr && dataLen != 0));
}

// Tests a template that must be there and whose every attribute must carry a value.
// Returns CKR_OK, CKR_ARGUMENTS_BAD or CKR_ATTRIBUTE_VALUE_INVALID.
inline CK_RV checkTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (attributes == nullptr || count == 0) return CKR_ARGUMENTS_BAD;
  for (CK_ULONG i = 0; i < count; ++i) {
    if (!hasValue(attributes[i])) return CKR_ATTRIBUTE_VALUE_INVALID;
  }
  return CKR_OK;
}

}  // namespace brivasign
