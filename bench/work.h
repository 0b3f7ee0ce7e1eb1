#pragma once

#include <functional>
#include <optional>
#include <string>

#include "home.h"
#include "medians.h"
#include "table.h"

namespace bench {

// What the module's time is compared with, and the goals.
struct Goals {
  double mostOverFloor = 0;  // the module's time over the floor's; 0: not compared
  double leastAhead = 0;     // SoftHSM2's time over the module's; 0: not compared
  bool isMissKnown = false;  // of leastAhead; docs/performance.md gives the cause
};

// One line of the table: the same work done by the module and by what it is compared with.
struct Work {
  std::string id;    // begins the names of its benchmarks
  std::string text;  // what the table calls it
  const Home* home;  // where it is done
  Goals goals;
  std::function<void()> module;
  std::function<void()> floor{};
  std::function<void()> softHsm{};
  // Whether another process does a part of it, so that the elapsed time counts. Otherwise it is
  // this thread's time on the processor, which another program does not prolong.
  bool isShared = false;
  std::string softHsmId{};  // of the work whose SoftHSM2 side serves here too
};

// Makes benchmarks of `work`, which must outlive them: its id and "/module", "/floor", "/SoftHSM2".
void registerBenchmarks(const Work& work);

// Returns the line of `work`; nothing when it has not run.
std::optional<Line> judge(const Work& work, const Medians& medians);

}  // namespace bench
