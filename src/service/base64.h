#pragma once

#include <climits>
#include <cstddef>
#include <string>

namespace brivasign {

// The encoder counts in int, which the text must fit too. Bytes.
constexpr std::size_t MOST_ENCODED = INT_MAX / 2;

// Returns the `length` bytes at `data`, at most MOST_ENCODED, in standard base64 (RFC 4648) with
// padding, on one line.
std::string encodeBase64(const unsigned char* data, std::size_t length);

// Decodes `text` (zero-terminated, one line of standard base64) byte by byte into `output`, which
// must have room for all that it decodes to. Text that does not decode yields fewer bytes or none.
// Returns how many bytes it yielded.
std::size_t decodeBase64(const char* text, unsigned char* output);

}  // namespace brivasign
