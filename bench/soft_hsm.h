#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "token.h"

namespace bench {

// SoftHSM2 in this process, with its tokens in a folder of this run.
class SoftHsm {
 public:
  // Loads it; its configuration and its tokens go into `folder`.
  explicit SoftHsm(const std::filesystem::path& folder);

  // Adds a token that holds the first `count` certificates that `model` lists.
  Token addToken(Token& model, std::size_t count);

 private:
  CK_SLOT_ID freeSlot();

  TokenLibrary library_;
};

}  // namespace bench
