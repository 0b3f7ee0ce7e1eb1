#pragma once

#include <openssl/evp.h>

#include <filesystem>
#include <memory>
#include <string>

namespace localservice {

template <auto release>
struct Release {
  template <typename Object>
  void operator()(Object* object) const {
    release(object);
  }
};

// Owns one OpenSSL object, which `release` frees.
template <typename Object, auto release>
using OpensslHandle = std::unique_ptr<Object, Release<release>>;

using PrivateKey = OpensslHandle<EVP_PKEY, EVP_PKEY_free>;

// Returns all bytes of `file`; throws std::runtime_error, with the reason, when it cannot be read.
std::string readFile(const std::filesystem::path& file);

// Returns the private key in the PEM file `file`. An encrypted key is refused rather than asking
// for its password. Throws std::runtime_error with a sentence that names the file.
PrivateKey loadPrivateKey(const std::filesystem::path& file);

}  // namespace localservice
