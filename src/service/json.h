#pragma once

#include <cstddef>

#include "out_of_memory.h"
#include "service/end_process.h"

// A read of a member as what it is not must end the process in every build; the library's own
// assertion vanishes in a release build. Every use of the library goes through this header.
#define RAPIDJSON_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : brivasign::endProcess(__FILE_NAME__, __LINE__, #condition))
#include <rapidjson/document.h>

namespace brivasign {

// Memory for the library, which writes into what it asks for without a look at what it got: a lack
// of memory must be thrown past it.
struct JsonMemory : rapidjson::CrtAllocator {
  static void* checked(void* memory, std::size_t size) {
    return memory != nullptr || size == 0 ? memory : throw OutOfMemory();
  }
  void* Malloc(std::size_t size) { return checked(CrtAllocator::Malloc(size), size); }
  void* Realloc(void* memory, std::size_t oldSize, std::size_t size) {
    return checked(CrtAllocator::Realloc(memory, oldSize, size), size);
  }
};
using JsonDocument =
    rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<JsonMemory>,
                               JsonMemory>;

// Parses `text` (zero-terminated) into `document`. Returns whether it is one JSON value with only
// white space around it. The parser does not recurse: a reply of nested brackets must not exhaust
// the host's stack.
inline bool parseJson(JsonDocument& document, const char* text) {
  return !document.Parse<rapidjson::kParseIterativeFlag>(text).HasParseError();
}

}  // namespace brivasign
