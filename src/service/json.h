#pragma once

#include <cstdio>
#include <cstdlib>

namespace brivasign {

// Tells on standard error which assertion of the JSON library failed, and ends the process.
[[noreturn]] inline void endProcess(const char* file, int line, const char* condition) {
  std::fprintf(stderr, "pkcs11-brivasign: %s:%d: assertion failed: %s\n", file, line, condition);
  std::abort();
}

}  // namespace brivasign

// A member of the wrong type must end the process in every build; the library's own assertion
// vanishes in a release build. Every use of the library goes through this header.
#define RAPIDJSON_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : brivasign::endProcess(__FILE_NAME__, __LINE__, #condition))
#include <rapidjson/document.h>

namespace brivasign {

// Parses `text` (zero-terminated) into `document`. Returns whether it is one JSON value with only
// white space around it. The parser does not recurse: a reply of nested brackets must not exhaust
// the host's stack.
inline bool parseJson(rapidjson::Document& document, const char* text) {
  return !document.Parse<rapidjson::kParseIterativeFlag>(text).HasParseError();
}

}  // namespace brivasign
