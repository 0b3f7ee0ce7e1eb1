#include "brivasign_check/printable.h"

#include <algorithm>

#include "service/json.h"
// The library's settings come before the rest of it.
#include <rapidjson/stringbuffer.h>

namespace diagnosis {
namespace {

// Returns whether `text`, which holds no zero byte, is UTF-8.
bool isUtf8(const std::string& text) {
  rapidjson::StringStream source(text.c_str());
  rapidjson::StringBuffer unused;
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
  return text;
}

std::string cutTo(std::size_t limit, const std::string& text) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  return text.substr(0, end) + "...";
}

}  // namespace diagnosis
