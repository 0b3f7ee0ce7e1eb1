#include "pkcs11-brivasign-standard/attributes.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "pkcs11-brivasign-standard/mechanism.h"

namespace brivasign::standard {
namespace {

// Which objects have an attribute: any of these together.
enum Classes : unsigned { CERTIFICATE = 1, PRIVATE_KEY = 2, PUBLIC_KEY = 4 };
constexpr unsigned KEYS = PRIVATE_KEY | PUBLIC_KEY;
constexpr unsigned ALL = CERTIFICATE | KEYS;

struct Empty {};
struct ClassOfObject {};
struct SigningMechanisms {};

using Text = std::string Certificate::*;
using Number = CK_ULONG Certificate::*;

struct Row {
  CK_ATTRIBUTE_TYPE type;
  unsigned classes;
  std::variant<CK_BBOOL, CK_ULONG, Empty, Sensitive, Text, Number, ClassOfObject, SigningMechanisms>
      value;
};

constexpr CK_BBOOL YES = CK_TRUE;
constexpr CK_BBOOL NO = CK_FALSE;
constexpr Empty EMPTY;

// A private key is shown without a login, and so is not private in the standard's sense. What was
// done with it before it came to the service cannot be told, so that nothing good is claimed of it.
const Row ROWS[] = {
    {CKA_CLASS, ALL, ClassOfObject{}},
    {CKA_TOKEN, ALL, YES},
    {CKA_PRIVATE, ALL, NO},
    {CKA_MODIFIABLE, ALL, NO},
    {CKA_COPYABLE, ALL, NO},
    {CKA_DESTROYABLE, ALL, NO},
    {CKA_LABEL, ALL, &Certificate::label},
    {CKA_ID, ALL, &Certificate::id},
    {CKA_SUBJECT, ALL, &Certificate::subject},
    {CKA_START_DATE, ALL, &Certificate::startDate},
    {CKA_END_DATE, ALL, &Certificate::endDate},
    {CKA_PUBLIC_KEY_INFO, ALL, &Certificate::publicKeyInfo},
    {CKA_TRUSTED, CERTIFICATE | PUBLIC_KEY, NO},

    {CKA_CERTIFICATE_TYPE, CERTIFICATE, CKC_X_509},
    {CKA_CERTIFICATE_CATEGORY, CERTIFICATE, CK_CERTIFICATE_CATEGORY_TOKEN_USER},
    {CKA_CHECK_VALUE, CERTIFICATE, &Certificate::checkValue},
    {CKA_ISSUER, CERTIFICATE, &Certificate::issuer},
    {CKA_SERIAL_NUMBER, CERTIFICATE, &Certificate::serialNumber},
    {CKA_VALUE, CERTIFICATE, &Certificate::value},
    {CKA_URL, CERTIFICATE, EMPTY},
    {CKA_HASH_OF_SUBJECT_PUBLIC_KEY, CERTIFICATE, EMPTY},
    {CKA_HASH_OF_ISSUER_PUBLIC_KEY, CERTIFICATE, EMPTY},
    {CKA_NAME_HASH_ALGORITHM, CERTIFICATE, CKM_SHA_1},
    {CKA_JAVA_MIDP_SECURITY_DOMAIN, CERTIFICATE, CK_SECURITY_DOMAIN_UNSPECIFIED},

    {CKA_KEY_TYPE, KEYS, CKK_RSA},
    {CKA_DERIVE, KEYS, NO},
    {CKA_LOCAL, KEYS, NO},
    {CKA_KEY_GEN_MECHANISM, KEYS, CK_UNAVAILABLE_INFORMATION},
    {CKA_ALLOWED_MECHANISMS, KEYS, SigningMechanisms{}},
    {CKA_MODULUS, KEYS, &Certificate::modulus},
    {CKA_PUBLIC_EXPONENT, KEYS, &Certificate::publicExponent},

    {CKA_MODULUS_BITS, PUBLIC_KEY, &Certificate::modulusBits},
    {CKA_ENCRYPT, PUBLIC_KEY, NO},
    {CKA_VERIFY, PUBLIC_KEY, YES},
    {CKA_VERIFY_RECOVER, PUBLIC_KEY, NO},
    {CKA_WRAP, PUBLIC_KEY, NO},
    {CKA_WRAP_TEMPLATE, PUBLIC_KEY, EMPTY},

    {CKA_SIGN, PRIVATE_KEY, YES},
    {CKA_SIGN_RECOVER, PRIVATE_KEY, NO},
    {CKA_DECRYPT, PRIVATE_KEY, NO},
    {CKA_UNWRAP, PRIVATE_KEY, NO},
    {CKA_UNWRAP_TEMPLATE, PRIVATE_KEY, EMPTY},
    {CKA_WRAP_WITH_TRUSTED, PRIVATE_KEY, NO},
    {CKA_SENSITIVE, PRIVATE_KEY, YES},
    {CKA_ALWAYS_SENSITIVE, PRIVATE_KEY, NO},
    {CKA_EXTRACTABLE, PRIVATE_KEY, NO},
    {CKA_NEVER_EXTRACTABLE, PRIVATE_KEY, NO},
    {CKA_ALWAYS_AUTHENTICATE, PRIVATE_KEY, NO},
    {CKA_PRIVATE_EXPONENT, PRIVATE_KEY, Sensitive{}},
    {CKA_PRIME_1, PRIVATE_KEY, Sensitive{}},
    {CKA_PRIME_2, PRIVATE_KEY, Sensitive{}},
    {CKA_EXPONENT_1, PRIVATE_KEY, Sensitive{}},
    {CKA_EXPONENT_2, PRIVATE_KEY, Sensitive{}},
    {CKA_COEFFICIENT, PRIVATE_KEY, Sensitive{}},
};

unsigned classBit(CK_OBJECT_CLASS objectClass) {
  switch (objectClass) {
    case CKO_CERTIFICATE:
      return CERTIFICATE;
    case CKO_PRIVATE_KEY:
      return PRIVATE_KEY;
    default:
      return PUBLIC_KEY;
  }
}

// Returns the value that a row of the table stands for. Not by std::visit, which brings an
// exception along.
AttributeValue resolve(const Row& row, const Object& object) {
  if (const auto* const flag = std::get_if<CK_BBOOL>(&row.value)) return *flag;
  if (const auto* const number = std::get_if<CK_ULONG>(&row.value)) return *number;
  if (const auto* const text = std::get_if<Text>(&row.value)) {
    return std::string_view(object.certificate.**text);
  }
  if (const auto* const number = std::get_if<Number>(&row.value)) {
    return object.certificate.**number;
  }
  if (std::holds_alternative<ClassOfObject>(row.value)) return object.objectClass;
  if (std::holds_alternative<SigningMechanisms>(row.value)) {
    const auto types = signingMechanisms();
    return std::string_view(reinterpret_cast<const char*>(types.data()), types.size_bytes());
  }
  if (std::holds_alternative<Sensitive>(row.value)) return Sensitive{};
  return std::string_view();
}

template <class Type>
std::string_view bytesOf(const Type& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

}  // namespace

std::optional<AttributeValue> attributeOf(const Object& object, CK_ATTRIBUTE_TYPE type) {
  const unsigned bit = classBit(object.objectClass);
  const auto* const row = std::find_if(std::begin(ROWS), std::end(ROWS), [=](const Row& each) {
    return each.type == type && (each.classes & bit) != 0;
  });
  if (row == std::end(ROWS)) return std::nullopt;
  return resolve(*row, object);
}

std::string_view bytesOf(const AttributeValue& value) {
  if (const auto* const text = std::get_if<std::string_view>(&value)) return *text;
  if (const auto* const flag = std::get_if<CK_BBOOL>(&value)) return bytesOf<CK_BBOOL>(*flag);
  if (const auto* const number = std::get_if<CK_ULONG>(&value)) return bytesOf<CK_ULONG>(*number);
  return {};
}

CK_RV answerAttribute(const Object& object, CK_ATTRIBUTE& attribute) {
  const CK_ULONG room = std::exchange(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
  const auto value = attributeOf(object, attribute.type);
  if (!value) return CKR_ATTRIBUTE_TYPE_INVALID;
  if (std::holds_alternative<Sensitive>(*value)) return CKR_ATTRIBUTE_SENSITIVE;
  const std::string_view bytes = bytesOf(*value);
  if (attribute.pValue != nullptr) {
    if (room < bytes.size()) return CKR_BUFFER_TOO_SMALL;
    bytes.copy(static_cast<char*>(attribute.pValue), bytes.size());
  }
  attribute.ulValueLen = bytes.size();
  return CKR_OK;
}

}  // namespace brivasign::standard
