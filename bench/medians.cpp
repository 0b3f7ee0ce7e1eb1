#include "medians.h"

#include <algorithm>

namespace bench {
namespace {

constexpr std::size_t LEAST_REPETITIONS = 9;

}  // namespace

bool Medians::ReportContext(const Context& /*context*/) { return true; }

void Medians::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration) continue;
    const bool isElapsed = !run.run_name.time_type.empty();
    const double seconds = isElapsed ? run.real_accumulated_time : run.cpu_accumulated_time;
    seconds_[run.run_name.function_name].push_back(seconds / static_cast<double>(run.iterations));
  }
}

std::optional<double> Medians::of(const std::string& name) const {
  const auto found = seconds_.find(name);
  if (found == seconds_.end()) return std::nullopt;
  std::vector<double> sorted = found->second;
  std::sort(sorted.begin(), sorted.end());
  const std::size_t middle = sorted.size() / 2;
  return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

bool Medians::areReliable() const {
  return std::all_of(seconds_.begin(), seconds_.end(),
                     [](const auto& entry) { return entry.second.size() >= LEAST_REPETITIONS; });
}

}  // namespace bench
