#include "service/base64.h"

#include <openssl/evp.h>

#include <cstring>

#include "openssl_handles.h"

namespace brivasign {

std::string encodeBase64(const unsigned char* data, std::size_t length) {
  std::string text((length + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data, static_cast<int>(length));
  return text;
}

std::size_t decodeBase64(const char* text, unsigned char* output) {
  BioPtr filter(BIO_new(BIO_f_base64()));
  BIO* const source = BIO_new(BIO_s_mem());
  if (filter == nullptr || source == nullptr) {
    BIO_free(source);
    return 0;
  }
  BIO_write(source, text, static_cast<int>(std::strlen(text)));
  BIO_push(filter.get(), source);
  BIO_set_flags(filter.get(), BIO_FLAGS_BASE64_NO_NL);
  std::size_t length = 0;
  while (BIO_read(filter.get(), output + length, 1) > 0) ++length;
  return length;
}

}  // namespace brivasign
