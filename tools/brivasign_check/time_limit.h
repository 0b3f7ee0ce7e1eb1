#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace diagnosis {

// How long a step of the diagnosis may take. Nothing that the module waits for has a limit of its
// own, but a diagnosis must end.
class TimeLimit {
 public:
  explicit TimeLimit(std::chrono::seconds limit) : limit_(limit) {}

  // Runs `step` on a thread of its own. Returns its result; nothing when it takes longer than the
  // limit. It is then left to itself: it must own all that it uses, and the process must end
  // without destructors. What lasts longer than a moment is shown on the terminal, if standard
  // error is one, as a wait for `what`.
  template <typename Step>
  [[nodiscard]] std::optional<std::invoke_result_t<Step>> run(const std::string& what,
                                                              Step step) const {
    std::packaged_task<std::invoke_result_t<Step>()> task(std::move(step));
    auto result = task.get_future();
    std::thread thread(std::move(task));
    if (!isDone(what, [&result](std::chrono::milliseconds time) {
          return result.wait_for(time) == std::future_status::ready;
        })) {
      thread.detach();
      leftStep = true;
      return std::nullopt;
    }
    thread.join();
    return result.get();
  }

  [[nodiscard]] std::chrono::seconds limit() const { return limit_; }

  // Whether any step has been left to itself.
  [[nodiscard]] static bool leftAnyStep() { return leftStep; }

  // Says that a step has taken too long.
  [[nodiscard]] std::string exceeded() const;

 private:
  // Waits, showing `what`, until `isDoneWithin` says so or the time is up. Returns what it says.
  bool isDone(const std::string& what,
              const std::function<bool(std::chrono::milliseconds)>& isDoneWithin) const;

  inline static bool leftStep = false;

  std::chrono::seconds limit_;
};

}  // namespace diagnosis
