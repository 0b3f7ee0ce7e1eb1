#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace tools {

// Returns the number that the whole of `text` writes in decimal digits, or nothing when `text` is
// empty, holds anything else (a sign before an unsigned number too) or goes beyond the type.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace tools
