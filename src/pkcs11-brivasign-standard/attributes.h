#pragma once

#include <optional>
#include <string_view>
#include <variant>

#include "pkcs11-brivasign-standard/certificate.h"
#include "pkcs11.h"

namespace brivasign::standard {

// An object of the token: a certificate or one of the keys that it is of.
struct Object {
  CK_OBJECT_CLASS objectClass;
  const Certificate& certificate;
};

// What is there and shown to nobody.
struct Sensitive {};

using AttributeValue = std::variant<CK_BBOOL, CK_ULONG, std::string_view, Sensitive>;

// Returns the value of the attribute `type` of `object`, bytes of the certificate's own; nothing
// when such an object has no such attribute, or none that can be told.
std::optional<AttributeValue> attributeOf(const Object& object, CK_ATTRIBUTE_TYPE type);

// Returns the bytes of `value`, for as long as `value` and its object live; nothing of what is
// sensitive.
std::string_view bytesOf(const AttributeValue& value);

// Answers one entry of a caller's template. Returns CKR_OK, CKR_ATTRIBUTE_SENSITIVE,
// CKR_ATTRIBUTE_TYPE_INVALID or CKR_BUFFER_TOO_SMALL.
CK_RV answerAttribute(const Object& object, CK_ATTRIBUTE& attribute);

}  // namespace brivasign::standard
