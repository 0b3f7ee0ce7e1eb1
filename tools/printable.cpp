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

// Returns how long the character at the start of `text`, which is UTF-8, is if it is none of those
// to be shown: U+0080 to U+009F, which terminals obey, or what ends a line or turns the order of
// letters around. Else 0.
std::size_t lengthOfUnsafe(std::string_view text) {
  const auto isLast = [&](std::string_view start, unsigned char least, unsigned char most) {
    if (!text.starts_with(start)) return false;
    const auto last = static_cast<unsigned char>(text[start.size()]);
    return last >= least && last <= most;
  };
  if (isLast("\xC2", 0x80, 0x9F)) return 2;
  return isLast("\xE2\x80", 0xA8, 0xAE) || isLast("\xE2\x81", 0xA6, 0xA9) ? 3 : 0;
}

}  // namespace

std::string printable(std::string text) {
  std::replace_if(text.begin(), text.end(), isControl, '?');
  if (!isUtf8(text)) std::replace_if(text.begin(), text.end(), isBeyondAscii, '?');
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t length = lengthOfUnsafe(std::string_view(text).substr(at));
    if (length > 0) text.replace(at, length, "?");
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
