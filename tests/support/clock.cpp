#include "support/service_test.h"

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

}  // namespace testclock

extern "C" __attribute__((visibility("default"))) int gettimeofday(
    struct timeval* __restrict time, void* __restrict /*zone*/) noexcept {
  *time = testclock::now;
  return 0;
}

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
  testclock::sleeps.push_back(microseconds);
  testclock::advance(microseconds);
  return 0;
}
