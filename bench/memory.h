#pragma once

#include <cstddef>

#include "token.h"

namespace bench {

// What a long life of the module takes from its host.
struct MemoryGrowth {
  long kibibytes;  // of resident memory
  std::size_t descriptorsBefore;
  std::size_t descriptorsAfter;
};

constexpr int LIFE_SEARCHES = 10'000;
constexpr int LIFE_ATTRIBUTE_QUERIES = 10'000;
constexpr int LIFE_SIGNATURES = 1'000;

// Has `token` do as much work of each kind as these numbers say, after a hundredth of it that is
// not counted: what every first call sets up is no growth. `key` signs. Nothing else may run in
// this process.
MemoryGrowth measureMemory(Token& token, CK_OBJECT_HANDLE key);

}  // namespace bench
