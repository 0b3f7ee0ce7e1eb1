#include "product/product_folder.h"

#include <cstdlib>

namespace brivasign {

std::string productFilePath(std::string_view name) {
  const char* const home = std::getenv("HOME");
  if (home == nullptr) return {};
  return std::string(home).append("/Library/Application Support/Orvix/").append(name);
}

}  // namespace brivasign
