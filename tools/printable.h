#pragma once

#include <cstddef>
#include <string>

namespace tools {

// Returns `text` without what harms a terminal, a JSON text or whoever reads it: control characters
// become '?', those too that turn the order of letters around, and so does every byte that is not
// ASCII unless all is UTF-8.
std::string printable(std::string text);

// Returns `text`, cut to at most `limit` bytes between characters of UTF-8, with "..." for the
// rest.
std::string cutTo(std::size_t limit, const std::string& text);

}  // namespace tools
