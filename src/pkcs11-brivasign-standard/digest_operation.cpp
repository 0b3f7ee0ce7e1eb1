#include "pkcs11-brivasign-standard/digest_operation.h"

#include "out_of_memory.h"

namespace brivasign::standard {

DigestOperation::DigestOperation(const Hash& hash) : hash_(&hash), context_(EVP_MD_CTX_new()) {
  if (context_ == nullptr || EVP_DigestInit_ex(context_.get(), hash.function(), nullptr) != 1) {
    throw OutOfMemory();
  }
}

void DigestOperation::update(std::span<const CK_BYTE> data) {
  hasParts_ = true;
  if (EVP_DigestUpdate(context_.get(), data.data(), data.size()) != 1) throw OutOfMemory();
}

std::string DigestOperation::finish() {
  std::string digest(hash_->length, '\0');
  auto* const output = reinterpret_cast<unsigned char*>(digest.data());
  if (EVP_DigestFinal_ex(context_.get(), output, nullptr) != 1) throw OutOfMemory();
  return digest;
}

}  // namespace brivasign::standard
