#include "brivasign_check/time_limit.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "brivasign_check/printable.h"

namespace diagnosis {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds MOMENT{300};
constexpr std::size_t WIDTH = 72;  // a longer line would not be wiped as a whole

// A line on the terminal for as long as it lives.
class PassingLine {
 public:
  explicit PassingLine(const std::string& text)
      : length_(isatty(STDERR_FILENO) != 0 ? text.size() : 0) {
    if (length_ > 0) std::cerr << text << std::flush;
  }
  PassingLine(const PassingLine&) = delete;
  PassingLine& operator=(const PassingLine&) = delete;
  ~PassingLine() {
    if (length_ > 0) std::cerr << '\r' << std::string(length_, ' ') << '\r' << std::flush;
  }

 private:
  std::size_t length_;
};

}  // namespace

std::string TimeLimit::exceeded() const {
  return "no answer within " + std::to_string(limit_.count()) + " s";
}

bool TimeLimit::isDone(const std::string& what,
                       const std::function<bool(milliseconds)>& isDoneWithin) const {
  const milliseconds quiet = std::min(MOMENT, milliseconds(limit_));
  if (isDoneWithin(quiet)) return true;
  const PassingLine line(cutTo(
      WIDTH, printable("waiting up to " + std::to_string(limit_.count()) + " s for " + what)));
  return isDoneWithin(limit_ - quiet);
}

}  // namespace diagnosis
