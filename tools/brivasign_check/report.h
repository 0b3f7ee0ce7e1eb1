#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "brivasign_check/finding.h"

namespace diagnosis {

struct Report {
  Findings findings;
  std::vector<std::string> logLines;

  // Returns whether nothing is wrong.
  [[nodiscard]] bool isWell() const;
};

// Writes `report` in plain lines, for people.
void writeText(const Report& report, std::ostream& out);

// Writes `report` as one JSON object, for support tickets.
void writeJson(const Report& report, std::ostream& out);

}  // namespace diagnosis
