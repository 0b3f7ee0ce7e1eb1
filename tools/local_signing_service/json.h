#pragma once

#include <stdexcept>

// A namespace of our own: a program that links this service with other users of the library must
// not end up with two versions of its templates under one name, one per RAPIDJSON_ASSERT.
#define RAPIDJSON_NAMESPACE localservice::json
#define RAPIDJSON_NAMESPACE_BEGIN namespace localservice::json {
#define RAPIDJSON_NAMESPACE_END }
#define RAPIDJSON_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : throw std::invalid_argument("the JSON cannot be read"))
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace localservice {

using JsonWriter = json::Writer<json::StringBuffer>;

// Writes `text`, which is UTF-8, as a member `name` of the object that is open.
inline void member(JsonWriter& writer, const char* name, const std::string& text) {
  writer.Key(name);
  writer.String(text.data(), static_cast<json::SizeType>(text.size()));
}

inline void member(JsonWriter& writer, const char* name, std::uint64_t number) {
  writer.Key(name);
  writer.Uint64(number);
}

}  // namespace localservice
