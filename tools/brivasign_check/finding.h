#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace diagnosis {

enum class Status {
  OK,
  NOTE,   // worth knowing, but nothing is wrong
  WRONG,  // keeps applications from listing certificates or signing
};

// Names in lower camel case, and values.
using Facts = std::vector<std::pair<std::string, std::variant<std::string, bool, std::int64_t>>>;

// What a look at one thing has shown. The texts may hold any bytes; the report cleans them.
struct Finding {
  Status status = Status::OK;
  std::string code;      // area and condition, as listed in docs/diagnosis.md
  std::string message;   // what it is like or, unless it is ok, the reason
  std::string advice{};  // what to do; empty when there is nothing to do
  Facts facts{};
  std::string entry{};  // the file that it is about; empty when the area says it all
};

// Says of what lies in the product folder that the folder keeps it from being looked at.
inline constexpr const char* UNSEEN = "not looked at, because the product folder cannot be used";

using Findings = std::vector<Finding>;

}  // namespace diagnosis
