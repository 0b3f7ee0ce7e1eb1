#include "pkcs11-brivasign-standard/mechanism.h"

#include <algorithm>
#include <array>

namespace brivasign::standard {
namespace {

constexpr std::array<Hash, 5> HASHES = {{
    {CKM_SHA_1, CKG_MGF1_SHA1, 20, EVP_sha1},
    {CKM_SHA224, CKG_MGF1_SHA224, 28, EVP_sha224},
    {CKM_SHA256, CKG_MGF1_SHA256, 32, EVP_sha256},
    {CKM_SHA384, CKG_MGF1_SHA384, 48, EVP_sha384},
    {CKM_SHA512, CKG_MGF1_SHA512, 64, EVP_sha512},
}};

constexpr std::array<Mechanism, 17> MECHANISMS = {{
    {CKM_RSA_PKCS, Padding::PKCS1, nullptr},
    {CKM_RSA_PKCS_PSS, Padding::PSS, nullptr},
    {CKM_SHA1_RSA_PKCS, Padding::PKCS1, &HASHES[0]},
    {CKM_SHA224_RSA_PKCS, Padding::PKCS1, &HASHES[1]},
    {CKM_SHA256_RSA_PKCS, Padding::PKCS1, &HASHES[2]},
    {CKM_SHA384_RSA_PKCS, Padding::PKCS1, &HASHES[3]},
    {CKM_SHA512_RSA_PKCS, Padding::PKCS1, &HASHES[4]},
    {CKM_SHA1_RSA_PKCS_PSS, Padding::PSS, &HASHES[0]},
    {CKM_SHA224_RSA_PKCS_PSS, Padding::PSS, &HASHES[1]},
    {CKM_SHA256_RSA_PKCS_PSS, Padding::PSS, &HASHES[2]},
    {CKM_SHA384_RSA_PKCS_PSS, Padding::PSS, &HASHES[3]},
    {CKM_SHA512_RSA_PKCS_PSS, Padding::PSS, &HASHES[4]},
    {CKM_SHA_1, Padding::NONE, &HASHES[0]},
    {CKM_SHA224, Padding::NONE, &HASHES[1]},
    {CKM_SHA256, Padding::NONE, &HASHES[2]},
    {CKM_SHA384, Padding::NONE, &HASHES[3]},
    {CKM_SHA512, Padding::NONE, &HASHES[4]},
}};

constexpr auto SIGNING_MECHANISMS = [] {
  std::array<CK_MECHANISM_TYPE, MECHANISMS.size() - HASHES.size()> types = {};
  for (std::size_t i = 0; i < types.size(); ++i) types[i] = MECHANISMS[i].type;
  return types;
}();

// Returns the row of `table` whose type is `type`; null when there is none.
template <class Table>
auto findRow(const Table& table, CK_MECHANISM_TYPE type) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [type](const auto& row) { return row.type == type; });
  return found == table.end() ? nullptr : &*found;
}

}  // namespace

std::span<const Mechanism> mechanisms() { return MECHANISMS; }

std::span<const CK_MECHANISM_TYPE> signingMechanisms() { return SIGNING_MECHANISMS; }

const Mechanism* findMechanism(CK_MECHANISM_TYPE type) { return findRow(MECHANISMS, type); }

const Hash* findHash(CK_MECHANISM_TYPE type) { return findRow(HASHES, type); }

}  // namespace brivasign::standard
