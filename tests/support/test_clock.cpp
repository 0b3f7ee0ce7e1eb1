#include "support/test_clock.h"

#include <sys/time.h>
#include <unistd.h>

namespace testclock {

std::vector<unsigned> sleeps;
// Near the end of a second, so that a difference taken without its carry shows.
static timeval now = {1'900'000'000, 900'000};

void advance(long microseconds) {
  const long sum = now.tv_usec + microseconds;
  now.tv_sec += sum / 1'000'000;
  now.tv_usec = sum % 1'000'000;
}

static int readClock(timeval* time, void* /*zone*/) noexcept {
  *time = now;
  return 0;
}

static int sleep(useconds_t microseconds) {
  sleeps.push_back(microseconds);
  advance(microseconds);
  return 0;
}

}  // namespace testclock

#ifdef __APPLE__
// There a library finds these functions where it was linked to, unless a library that was loaded
// with the program asks the loader for others.
struct Replacement {
  const void* mine;
  const void* systems;
};
__attribute__((used, section("__DATA,__interpose"))) static const Replacement REPLACEMENTS[] = {
    {reinterpret_cast<const void*>(testclock::readClock),
     reinterpret_cast<const void*>(gettimeofday)},
    {reinterpret_cast<const void*>(testclock::sleep), reinterpret_cast<const void*>(usleep)}};
#else
extern "C" int gettimeofday(timeval* __restrict time, void* __restrict zone) noexcept {
  return testclock::readClock(time, zone);
}
extern "C" int usleep(useconds_t microseconds) { return testclock::sleep(microseconds); }
#endif
