#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "pkcs11.h"

namespace brivasign {

// Fills a fixed-width text field with `text`, cut to the field's width in bytes, and zero bytes
// behind it. Zero bytes, not the standard's blanks, are what this token's consumers have always
// seen.
template <std::size_t WIDTH>
void fillTextField(CK_UTF8CHAR (&field)[WIDTH], std::string_view text) {
  std::fill_n(field, WIDTH, CK_UTF8CHAR{0});
  std::copy_n(text.begin(), std::min(text.size(), WIDTH), field);
}

}  // namespace brivasign
