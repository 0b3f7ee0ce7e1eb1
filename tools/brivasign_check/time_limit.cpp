#include "brivasign_check/time_limit.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "printable.h"

namespace diagnosis {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds MOMENT{300};
constexpr std::size_t WIDTH = 72;  // without the dots of a line that is cut

// Returns how long a line may be so that it is wiped as a whole.
std::size_t fittingWidth() {
  constexpr std::size_t DOTS_AND_CURSOR = 4;
  winsize size = {};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col <= DOTS_AND_CURSOR) return WIDTH;
  return std::min(WIDTH, size.ws_col - DOTS_AND_CURSOR);
}

// A line on the terminal, where there is one, for as long as it lives.
class PassingLine {
 public:
  explicit PassingLine(const std::string& text) {
    if (isatty(STDERR_FILENO) == 0) return;
    const std::string fitting = tools::cutTo(fittingWidth(), text);
    length_ = fitting.size();
    std::cerr << fitting << std::flush;
  }
  PassingLine(const PassingLine&) = delete;
  PassingLine& operator=(const PassingLine&) = delete;
  ~PassingLine() {
    if (length_ > 0) std::cerr << '\r' << std::string(length_, ' ') << '\r' << std::flush;
  }

 private:
  std::size_t length_ = 0;
};

}  // namespace

std::string TimeLimit::exceeded() const {
  return "no answer within " + std::to_string(limit_.count()) + " s";
}

bool TimeLimit::isDone(const std::string& what,
                       const std::function<bool(milliseconds)>& isDoneWithin) const {
  const milliseconds quiet = std::min(MOMENT, milliseconds(limit_));
  if (isDoneWithin(quiet)) return true;
  const PassingLine line(
      tools::printable("waiting up to " + std::to_string(limit_.count()) + " s for " + what));
  return isDoneWithin(limit_ - quiet);
}

}  // namespace diagnosis
