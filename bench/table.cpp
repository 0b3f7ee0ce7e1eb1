#include "table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iomanip>

namespace bench {
namespace {

constexpr std::size_t COLUMNS = 9;
using Cells = std::array<std::string, COLUMNS>;

const char* text(Verdict verdict) {
  switch (verdict) {
    case Verdict::MET:
      return "met";
    case Verdict::KNOWN_MISS:
      return "missed, as known";
    case Verdict::MISSED:
      return "missed";
    default:
      return "too few repetitions";
  }
}

Cells cellsOf(const Line& line) {
  return {line.work,    line.module, line.floor,     line.ratio,        line.goal,
          line.softHsm, line.ahead,  line.aheadGoal, text(line.verdict)};
}

}  // namespace

std::string decimals(double value, int places) {
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%.*f", places, value);
  return text.data();
}

std::string duration(double seconds) {
  const double microseconds = seconds * 1e6;
  const bool isShort = microseconds < 1'000;
  const double value = isShort ? microseconds : microseconds / 1'000;
  const int places = value < 10 ? 2 : value < 100 ? 1 : 0;
  return decimals(value, places) + (isShort ? " us" : " ms");
}

void printTable(std::ostream& output, const std::vector<Line>& lines) {
  std::vector<Cells> rows = {
      {"work", "module", "floor", "ratio", "goal", "SoftHSM2", "ahead", "goal", "verdict"}};
  std::transform(lines.begin(), lines.end(), std::back_inserter(rows), cellsOf);
  std::array<std::size_t, COLUMNS> widths = {};
  for (const Cells& row : rows) {
    for (std::size_t i = 0; i < COLUMNS; ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const Cells& row : rows) {
    for (std::size_t i = 0; i < COLUMNS; ++i) {
      // Words to the left, figures to the right.
      const bool isText = i == 0 || i == COLUMNS - 1;
      output << (i == 0 ? "" : " | ") << (isText ? std::left : std::right)
             << std::setw(i == COLUMNS - 1 ? 0 : static_cast<int>(widths[i])) << row[i];
    }
    output << '\n';
  }
}

}  // namespace bench
