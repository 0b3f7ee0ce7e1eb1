#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "pkcs11.h"

namespace brivasign::standard {

// Fills a fixed-width text field with `text` and blanks behind it. The text must fit.
template <std::size_t WIDTH>
void fillTextField(CK_UTF8CHAR (&field)[WIDTH], std::string_view text) {
  std::fill(std::copy_n(text.begin(), std::min(text.size(), WIDTH), field), field + WIDTH,
            CK_UTF8CHAR{' '});
}

}  // namespace brivasign::standard
