#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace localservice {

constexpr std::size_t MAX_REQUEST_LENGTH = std::size_t{1} << 20;

struct HttpRequest {
  std::string method;
  std::string target;
  std::string body;  // as long as Content-Length says
};

// Returns how many bytes the request that begins `received` has in all, head and body, or nothing
// while its head is incomplete. A malformed Content-Length counts as none.
std::optional<std::size_t> requestLength(std::string_view received);

// Takes a whole HTTP/1.1 request apart; bytes behind its body are ignored. Returns nothing when the
// request line or Content-Length is malformed, or when bytes are missing.
std::optional<HttpRequest> parseHttpRequest(std::string_view text);

// Returns the first line of a request, however malformed, shortened.
std::string requestLine(std::string_view text);

}  // namespace localservice
