#pragma once

#include <cstdlib>

// A read of a member as what it is not must end the process in every build; the library's own
// assertion vanishes in a release build. Every use of the library goes through this header.
#define RAPIDJSON_ASSERT(condition) ((condition) ? static_cast<void>(0) : std::abort())
#include <rapidjson/document.h>

namespace brivasign {

// Parses `text` (zero-terminated) into `document`. Returns whether it is one JSON value with only
// white space around it. The parser does not recurse: a reply of nested brackets must not exhaust
// the host's stack.
inline bool parseJson(rapidjson::Document& document, const char* text) {
  return !document.Parse<rapidjson::kParseIterativeFlag>(text).HasParseError();
}

}  // namespace brivasign
