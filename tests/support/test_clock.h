#pragma once

#include <vector>

// The clock that the module sees, so that no test waits in real time: gettimeofday and usleep of a
// library that test programs are linked with stand before the system's.
namespace testclock {

extern std::vector<unsigned> sleeps;  // what usleep was asked for, in microseconds
void advance(long microseconds);

}  // namespace testclock
