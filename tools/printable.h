#pragma once

#include <cstddef>
#include <string>

namespace tools {

// Returns `text` without what harms a terminal or a JSON text: control characters become '?', and
// so does every byte that is not ASCII unless all is UTF-8.
std::string printable(std::string text);

// Returns `text`, cut to at most `limit` bytes between characters of UTF-8, with "..." for the
// rest.
std::string cutTo(std::size_t limit, const std::string& text);

}  // namespace tools
