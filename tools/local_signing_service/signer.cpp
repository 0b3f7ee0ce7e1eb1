#include "signer.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>
#include <system_error>
#include <utility>

#include "parse_number.h"

namespace localservice {
namespace {

void freeBytes(void* bytes) { OPENSSL_free(bytes); }

bool setPadding(EVP_PKEY_CTX* context, const std::optional<PssScheme>& pss) {
  if (!pss) {
    return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) > 0;
  }
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) > 0 &&
         EVP_PKEY_CTX_set_signature_md(context, pss->digest) > 0 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md(context, pss->digest) > 0 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(context, pss->saltLength) > 0;
}

// Returns the common name in the certificate in the PEM file `file`, as UTF-8; "" without one.
std::string commonName(const std::filesystem::path& file) {
  const OpensslHandle<BIO, BIO_free> source(BIO_new_file(file.c_str(), "r"));
  const OpensslHandle<X509, X509_free> certificate(
      source ? PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr) : nullptr);
  ERR_clear_error();
  const X509_NAME* const subject = certificate ? X509_get_subject_name(certificate.get()) : nullptr;
  const int index =
      subject != nullptr ? X509_NAME_get_index_by_NID(subject, NID_commonName, -1) : -1;
  unsigned char* text = nullptr;
  const int length =
      index < 0 ? 0
                : ASN1_STRING_to_UTF8(
                      &text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
  const OpensslHandle<unsigned char, freeBytes> owner(text);
  return length > 0 ? std::string(text, text + length) : "";
}

}  // namespace

Signer::Signer(const std::filesystem::path& folder) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const auto number = tools::parseNumber<std::uint64_t>(entry.path().stem().string());
    if (!number || entry.path().extension() != ".key") {
      continue;
    }
    PrivateKey key = loadPrivateKey(entry.path());
    if (EVP_PKEY_is_a(key.get(), "RSA") == 0) {
      throw std::runtime_error(entry.path().string() + " is not an RSA key");
    }
    users_[*number] = {std::move(key),
                       commonName(std::filesystem::path(entry).replace_extension(".pem"))};
  }
  if (error) {
    throw std::runtime_error("cannot read the folder " + folder.string() + ": " + error.message());
  }
  if (users_.empty()) {
    throw std::runtime_error("no <number>.key file in the folder " + folder.string());
  }
}

std::string Signer::holder(std::uint64_t certificate) const {
  const auto found = users_.find(certificate);
  return found == users_.end() ? "" : found->second.name;
}

std::string Signer::sign(std::uint64_t certificate, const std::string& challenge,
                         const std::optional<PssScheme>& pss) const {
  const auto found = users_.find(certificate);
  if (found == users_.end()) {
    throw std::invalid_argument("there is no certificate " + std::to_string(certificate));
  }
  EVP_PKEY* const key = found->second.key.get();
  auto length = static_cast<std::size_t>(EVP_PKEY_get_size(key));
  std::string signature(length, '\0');
  const OpensslHandle<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new(key, nullptr));
  const bool signedWell =
      context && EVP_PKEY_sign_init(context.get()) > 0 && setPadding(context.get(), pss) &&
      EVP_PKEY_sign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                    reinterpret_cast<const unsigned char*>(challenge.data()), challenge.size()) > 0;
  ERR_clear_error();
  if (!signedWell) {
    throw std::invalid_argument("the key cannot sign a challenge of " +
                                std::to_string(challenge.size()) +
                                " bytes with this hash and padding");
  }
  signature.resize(length);
  return signature;
}

}  // namespace localservice
