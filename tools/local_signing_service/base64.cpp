#include "base64.h"

#include <openssl/evp.h>

#include <algorithm>

namespace localservice {

std::string encodeBase64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
  return text;
}

std::optional<std::string> decodeBase64(const std::string& text) {
  std::string bytes(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
  if (length < 0) {
    return std::nullopt;
  }
  // The decoder counts the padding as zero bytes.
  const auto padding = std::min<std::ptrdiff_t>(std::count(text.begin(), text.end(), '='), length);
  bytes.resize(static_cast<std::size_t>(length - padding));
  // It also lets through blanks and misplaced padding, which the only right encoding has not.
  return encodeBase64(bytes) == text ? std::optional(bytes) : std::nullopt;
}

}  // namespace localservice
