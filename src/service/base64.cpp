#include "service/base64.h"

#include <openssl/evp.h>

#include <cstring>

#include "openssl_handles.h"
#include "out_of_memory.h"

namespace brivasign {

std::string encodeBase64(const unsigned char* data, std::size_t length) {
  std::string text((length + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data, static_cast<int>(length));
  return text;
}

std::size_t decodeBase64(const char* text, unsigned char* output) {
  const BioPtr filter(BIO_new(BIO_f_base64()));
  BioPtr source(BIO_new(BIO_s_mem()));
  const int length = static_cast<int>(std::strlen(text));
  if (filter == nullptr || source == nullptr || BIO_write(source.get(), text, length) < length) {
    throw OutOfMemory();
  }
  BIO_push(filter.get(), source.release());
  BIO_set_flags(filter.get(), BIO_FLAGS_BASE64_NO_NL);
  std::size_t decoded = 0;
  while (BIO_read(filter.get(), output + decoded, 1) > 0) ++decoded;
  return decoded;
}

}  // namespace brivasign
