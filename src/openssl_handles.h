#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>

// Owners of the TLS library's objects: each releases its object when it goes out of scope.

namespace brivasign {

struct OpensslDeleter {
  void operator()(BIO* chain) const { BIO_free_all(chain); }
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_SIG* digestInfo) const { X509_SIG_free(digestInfo); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  void operator()(RSA* key) const { RSA_free(key); }
  void operator()(ASN1_GENERALIZEDTIME* time) const { ASN1_GENERALIZEDTIME_free(time); }
  void operator()(BIGNUM* number) const { BN_free(number); }
  void operator()(char* text) const { OPENSSL_free(text); }
  void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};

using BioPtr = std::unique_ptr<BIO, OpensslDeleter>;  // owns the whole chain
using SslContextPtr = std::unique_ptr<SSL_CTX, OpensslDeleter>;
using X509Ptr = std::unique_ptr<X509, OpensslDeleter>;
using DigestInfoPtr = std::unique_ptr<X509_SIG, OpensslDeleter>;
using KeyPtr = std::unique_ptr<EVP_PKEY, OpensslDeleter>;
using KeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, OpensslDeleter>;
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, OpensslDeleter>;
using RsaPtr = std::unique_ptr<RSA, OpensslDeleter>;
using TimePtr = std::unique_ptr<ASN1_GENERALIZEDTIME, OpensslDeleter>;
using BignumPtr = std::unique_ptr<BIGNUM, OpensslDeleter>;
using OpensslText = std::unique_ptr<char, OpensslDeleter>;
using OpensslBytes = std::unique_ptr<unsigned char, OpensslDeleter>;

}  // namespace brivasign
