#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "private_key.h"

namespace localservice {

// EMSA-PSS with `digest` for the challenge and for the mask; `saltLength` in bytes.
struct PssScheme {
  const EVP_MD* digest;
  int saltLength;
};

// The private RSA keys of the users, each under the number of its certificate.
class Signer {
 public:
  // Loads every `<number>.key` of `folder`. Throws std::runtime_error with a sentence when the
  // folder cannot be read, holds no such file, or one of them is not a private RSA key.
  explicit Signer(const std::filesystem::path& folder);

  [[nodiscard]] std::size_t keyCount() const { return users_.size(); }

  // Returns the common name of whoever `certificate` is for; "" unless the folder has it in
  // `<number>.pem`.
  [[nodiscard]] std::string holder(std::uint64_t certificate) const;

  // Returns the signature, as long as the modulus, that the key of `certificate` makes. With `pss`
  // the challenge is a digest; without, it is padded after PKCS#1 v1.5 exactly as it stands. Throws
  // std::invalid_argument with a sentence when the certificate is unknown or the challenge does
  // not fit.
  [[nodiscard]] std::string sign(std::uint64_t certificate, const std::string& challenge,
                                 const std::optional<PssScheme>& pss) const;

 private:
  struct User {
    PrivateKey key;
    std::string name;
  };
  std::map<std::uint64_t, User> users_;
};

}  // namespace localservice
