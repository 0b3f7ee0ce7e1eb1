#include "work.h"

namespace bench {
namespace {

constexpr const char* MODULE = "/module";
constexpr const char* FLOOR = "/floor";
constexpr const char* SOFT_HSM = "/SoftHSM2";

void registerBenchmark(const Work& work, const char* side, const std::function<void()>& round) {
  auto* const registered =
      benchmark::RegisterBenchmark((work.id + side).c_str(), [&](benchmark::State& state) {
        work.home->enter();
        for ([[maybe_unused]] auto each : state) round();
      });
  if (work.isShared) registered->UseRealTime();
}

}  // namespace

void registerBenchmarks(const Work& work) {
  registerBenchmark(work, MODULE, work.module);
  if (work.floor != nullptr) registerBenchmark(work, FLOOR, work.floor);
  if (work.softHsm != nullptr) registerBenchmark(work, SOFT_HSM, work.softHsm);
}

std::optional<Line> judge(const Work& work, const Medians& medians) {
  const auto module = medians.of(work.id + MODULE);
  const auto floor = medians.of(work.id + FLOOR);
  if (!module || (work.floor != nullptr && !floor)) return std::nullopt;
  const Goals& goals = work.goals;
  Line line = {.work = work.text, .module = duration(*module)};
  if (floor) {
    const double overFloor = *module / *floor;
    line.floor = duration(*floor);
    line.ratio = decimals(overFloor, 2);
    line.goal = "<= " + decimals(goals.mostOverFloor, 2);
    if (overFloor > goals.mostOverFloor) line.verdict = Verdict::MISSED;
  }

  const std::string& softHsmId = work.softHsmId.empty() ? work.id : work.softHsmId;
  if (const auto softHsm = medians.of(softHsmId + SOFT_HSM)) {
    const double ahead = *softHsm / *module;
    const bool isBehind = ahead < goals.leastAhead;
    line.softHsm = duration(*softHsm);
    line.ahead = decimals(ahead, ahead < 10 ? 2 : 1);
    line.aheadGoal = ">= " + decimals(goals.leastAhead, 0);
    if (isBehind && line.verdict == Verdict::MET) {
      line.verdict = goals.isMissKnown ? Verdict::KNOWN_MISS : Verdict::MISSED;
    }
  }
  if (!medians.areReliable()) line.verdict = Verdict::NOT_JUDGED;
  return line;
}

}  // namespace bench
