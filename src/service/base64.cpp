#include "service/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "openssl_handles.h"

namespace brivasign {

std::string encodeBase64(const unsigned char* data, std::size_t length) {
  // The encoder counts in int; whole groups of three bytes join without padding between them.
  constexpr std::size_t MOST_AT_ONCE = 3 * 1024 * 1024;
  std::string text((length + 2) / 3 * 4, '\0');
  char* end = text.data();
  for (std::size_t done = 0; done < length; done += MOST_AT_ONCE) {
    const std::size_t count = std::min(MOST_AT_ONCE, length - done);
    end += EVP_EncodeBlock(reinterpret_cast<unsigned char*>(end), data + done,
                           static_cast<int>(count));
  }
  return text;
}

void decodeBase64(const char* text, unsigned char* output) {
  BioPtr filter(BIO_new(BIO_f_base64()));
  BIO* const source = BIO_new(BIO_s_mem());
  if (filter == nullptr || source == nullptr) {
    BIO_free(source);
    return;
  }
  BIO_write(source, text, static_cast<int>(std::strlen(text)));
  BIO_push(filter.get(), source);
  BIO_set_flags(filter.get(), BIO_FLAGS_BASE64_NO_NL);
  while (BIO_read(filter.get(), output, 1) > 0) ++output;
}

}  // namespace brivasign
