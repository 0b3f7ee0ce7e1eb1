#pragma once

namespace tools {

// What our programs end with where the command line, or what it names, cannot be used.
constexpr int WRONG_USAGE = 2;

}  // namespace tools
