#include "pkcs11-brivasign/mechanisms.h"

#include <algorithm>
#include <iterator>

#include "pkcs11-brivasign/checks.h"
#include "pkcs11.h"

namespace brivasign {
namespace {

struct Mechanism {
  CK_MECHANISM_TYPE type;
  CK_MECHANISM_INFO info;    // key sizes in bits
  CK_ULONG parameterLength;  // bytes; 0: no parameter at all
};

constexpr CK_ULONG DES_IV_LENGTH = 8;
constexpr CK_ULONG AES_IV_LENGTH = 16;
constexpr CK_ULONG XOR_PARAMETER_LENGTH = 16;  // one CK_KEY_DERIVATION_STRING_DATA

constexpr Mechanism MECHANISMS[] = {
    {CKM_RSA_PKCS,
     {2048, 2048,
      CKF_ENCRYPT | CKF_DECRYPT | CKF_SIGN | CKF_SIGN_RECOVER | CKF_VERIFY | CKF_VERIFY_RECOVER},
     0},
    {CKM_SHA1_RSA_PKCS, {2048, 2048, CKF_SIGN | CKF_VERIFY}, 0},
    {CKM_RSA_PKCS_OAEP, {2048, 2048, CKF_ENCRYPT | CKF_DECRYPT}, sizeof(CK_RSA_PKCS_OAEP_PARAMS)},
    {CKM_RSA_PKCS_PSS, {2048, 2048, CKF_SIGN | CKF_VERIFY}, sizeof(CK_RSA_PKCS_PSS_PARAMS)},
    {CKM_DES3_KEY_GEN, {192, 192, CKF_GENERATE}, 0},
    {CKM_DES3_CBC, {192, 192, CKF_ENCRYPT | CKF_DECRYPT}, DES_IV_LENGTH},
    {CKM_SHA_1, {0, 0, CKF_DIGEST}, 0},
    {CKM_XOR_BASE_AND_DATA, {128, 256, CKF_DERIVE}, XOR_PARAMETER_LENGTH},
    {CKM_AES_CBC, {128, 256, CKF_ENCRYPT | CKF_DECRYPT}, AES_IV_LENGTH},
};

// What the token advertises: the mechanisms that really sign.
constexpr CK_MECHANISM_TYPE ADVERTISED_MECHANISMS[] = {CKM_RSA_PKCS, CKM_RSA_PKCS_PSS};

// Returns the mechanism of `type`, or null when there is none.
const Mechanism* findMechanism(CK_MECHANISM_TYPE type) {
  const auto* const found =
      std::find_if(std::begin(MECHANISMS), std::end(MECHANISMS),
                   [type](const Mechanism& each) { return each.type == type; });
  return found == std::end(MECHANISMS) ? nullptr : found;
}

}  // namespace

CK_RV checkMechanism(const CK_MECHANISM* mechanism,
                     std::initializer_list<CK_MECHANISM_TYPE> accepted) {
  if (mechanism == nullptr) return CKR_ARGUMENTS_BAD;
  const Mechanism* const known = findMechanism(mechanism->mechanism);
  if (known == nullptr ||
      std::find(accepted.begin(), accepted.end(), known->type) == accepted.end()) {
    return CKR_MECHANISM_INVALID;
  }
  const bool parameterExpected = known->parameterLength != 0;
  return require((mechanism->pParameter != nullptr) == parameterExpected &&
                     mechanism->ulParameterLen == known->parameterLength,
                 CKR_MECHANISM_PARAM_INVALID);
}

}  // namespace brivasign

using namespace brivasign;

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                         CK_ULONG_PTR pulCount) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSlot(slotID), arguments(pulCount != nullptr))) {
    return refusal;
  }
  if (pMechanismList != nullptr) {
    if (*pulCount < std::size(ADVERTISED_MECHANISMS)) return CKR_BUFFER_TOO_SMALL;
    std::copy(std::begin(ADVERTISED_MECHANISMS), std::end(ADVERTISED_MECHANISMS), pMechanismList);
  }
  *pulCount = std::size(ADVERTISED_MECHANISMS);
  return CKR_OK;
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type,
                         CK_MECHANISM_INFO_PTR pInfo) noexcept {
  if (const CK_RV refusal =
          firstRefusal(initialized(), checkSlot(slotID), arguments(pInfo != nullptr))) {
    return refusal;
  }
  const Mechanism* const known = findMechanism(type);
  if (known == nullptr) return CKR_MECHANISM_INVALID;
  *pInfo = known->info;
  return CKR_OK;
}
