#pragma once

#include <string>
#include <vector>

#include "brivasign_check/finding.h"

namespace diagnosis {

struct Report {
  std::string program;  // the name by which it was started
  Facts run;            // when, where and by whom
  Findings findings{};
  std::vector<std::string> logLines{};

  // Returns whether nothing is wrong.
  [[nodiscard]] bool isWell() const;
};

// Returns `report` in plain lines, for people.
std::string textOf(const Report& report);

// Returns `report` as one JSON object, which docs/diagnosis.md describes.
std::string jsonOf(const Report& report);

}  // namespace diagnosis
