#pragma once

#include <string>
#include <utility>
#include <vector>

namespace diagnosis {

enum class Status {
  OK,
  NOTE,   // worth knowing, but nothing is wrong
  WRONG,  // keeps applications from listing certificates or signing
};

// What a look at one thing has shown. The texts may hold any bytes; the report cleans them.
struct Finding {
  Status status = Status::OK;
  std::string subject;   // what was looked at
  std::string message;   // what it is like or, unless it is ok, the reason
  std::string advice{};  // what to do; empty when there is nothing to do
  std::vector<std::pair<std::string, std::string>> facts{};  // names and values
};

using Findings = std::vector<Finding>;

}  // namespace diagnosis
