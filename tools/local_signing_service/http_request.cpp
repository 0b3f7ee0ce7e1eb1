#include "http_request.h"

#include <strings.h>

#include <algorithm>
#include <cstdint>

#include "parse_number.h"

namespace localservice {
namespace {

constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view HEAD_END = "\r\n\r\n";
constexpr std::string_view BLANKS = " \t";
constexpr std::size_t MAX_PRINTED_LINE = 200;

// Splits `text` at the first `separator`, removes both from it and returns what was in front; all
// of it when there is no separator.
std::string_view takeUntil(std::string_view& text, std::string_view separator) {
  const std::string_view taken = text.substr(0, text.find(separator));
  text.remove_prefix(std::min(taken.size() + separator.size(), text.size()));
  return taken;
}

bool isContentLength(std::string_view name) {
  constexpr std::string_view CONTENT_LENGTH = "content-length";
  return name.size() == CONTENT_LENGTH.size() &&
         ::strncasecmp(name.data(), CONTENT_LENGTH.data(), name.size()) == 0;
}

std::string_view trim(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
  return text.substr(0, text.find_last_not_of(BLANKS) + 1);
}

// Returns 0 when the head has no Content-Length, nothing when it is malformed.
std::optional<std::uint64_t> contentLength(std::string_view head) {
  while (!head.empty()) {
    std::string_view value = takeUntil(head, LINE_END);
    if (isContentLength(takeUntil(value, ":"))) {
      return tools::parseNumber<std::uint64_t>(trim(value));
    }
  }
  return 0;
}

}  // namespace

std::optional<std::size_t> requestLength(std::string_view received) {
  const std::size_t headLength = received.find(HEAD_END);
  if (headLength == std::string_view::npos) {
    return std::nullopt;
  }
  const std::uint64_t bodyLength = contentLength(received.substr(0, headLength)).value_or(0);
  // Capped so that the sum cannot wrap around; it still shows that the request is too long.
  return headLength + HEAD_END.size() + std::min<std::uint64_t>(bodyLength, MAX_REQUEST_LENGTH);
}

std::optional<HttpRequest> parseHttpRequest(std::string_view text) {
  if (text.find(HEAD_END) == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view head = takeUntil(text, HEAD_END);
  std::string_view version = takeUntil(head, LINE_END);
  const std::string_view method = takeUntil(version, " ");
  const std::string_view target = takeUntil(version, " ");
  const auto bodyLength = contentLength(head);
  if (method.empty() || target.empty() || (version != "HTTP/1.1" && version != "HTTP/1.0") ||
      !bodyLength || *bodyLength > text.size()) {
    return std::nullopt;
  }
  return HttpRequest{std::string(method), std::string(target),
                     std::string(text.substr(0, *bodyLength))};
}

std::string requestLine(std::string_view text) {
  return std::string(takeUntil(text, LINE_END).substr(0, MAX_PRINTED_LINE));
}

}  // namespace localservice
