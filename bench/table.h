#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace bench {

enum class Verdict { NOT_JUDGED, MET, KNOWN_MISS, MISSED };

// One line of the table, ready to print; what does not apply is empty.
struct Line {
  std::string work{};
  std::string module{};
  std::string floor{};
  std::string ratio{};  // module over floor
  std::string goal{};
  std::string softHsm{};
  std::string ahead{};  // SoftHSM2 over module
  std::string aheadGoal{};
  Verdict verdict = Verdict::MET;
};

// Returns `value` with `places` decimals.
std::string decimals(double value, int places);

// Returns `seconds` in the unit that suits them.
std::string duration(double seconds);

// Prints `lines` in columns that fit, each with its verdict.
void printTable(std::ostream& output, const std::vector<Line>& lines);

}  // namespace bench
