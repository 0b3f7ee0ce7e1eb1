#include "printable.h"

#include <rapidjson/encodings.h>
#include <rapidjson/stream.h>
#include <algorithm>

namespace tools {
namespace {

// Takes what a reading of the library writes.
struct Nowhere {
  void Put(char /*unit*/) {}
};

// Returns whether `text`, which holds no zero byte, is UTF-8.
bool isUtf8(const std::string& text) {
  rapidjson::StringStream source(text.c_str());
  Nowhere unused;
  while (source.Peek() != '\0') {
    if (!rapidjson::UTF8<>::Validate(source, unused)) return false;
  }
  return true;
}

bool isControl(unsigned char c) { return c < ' ' || c == 0x7F; }

bool isBeyondAscii(unsigned char c) { return c >= 0x80; }

}  // namespace

std::string printable(std::string text) {
  std::replace_if(text.begin(), text.end(), isControl, '?');
  if (!isUtf8(text)) std::replace_if(text.begin(), text.end(), isBeyondAscii, '?');
  // U+0080 to U+009F, which terminals obey too, begin with C2, as do sixty-four letters and signs.
  for (std::size_t at = 0; (at = text.find('\xC2', at)) != std::string::npos; ++at) {
    if (static_cast<unsigned char>(text[at + 1]) < 0xA0) text.replace(at, 2, "?");
  }
  return text;
}

std::string cutTo(std::size_t limit, const std::string& text) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  return text.substr(0, end) + "...";
}

}  // namespace tools
