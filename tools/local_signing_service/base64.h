#pragma once

#include <optional>
#include <string>

namespace localservice {

// Returns `bytes` in standard padded base64, on one line.
std::string encodeBase64(const std::string& bytes);

// Returns the bytes that `text` encodes in standard padded base64, or nothing when it is anything
// else: another alphabet, white space, missing padding, bits left over.
std::optional<std::string> decodeBase64(const std::string& text);

}  // namespace localservice
