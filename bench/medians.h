#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Collects the repetitions of all benchmarks without printing them.
class Medians : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

  // Returns the median of the repetitions of the benchmark `name`, in seconds for one round;
  // nothing when it has not run.
  [[nodiscard]] std::optional<double> of(const std::string& name) const;

  // Returns whether every benchmark has run often enough to be judged by.
  [[nodiscard]] bool areReliable() const;

 private:
  std::map<std::string, std::vector<double>> seconds_;
};

}  // namespace bench
