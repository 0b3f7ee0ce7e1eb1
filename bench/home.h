#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

// A home folder whose certificate cache holds `count` certificates, numbered from 1.
class Home {
 public:
  // Makes it below `folder`. With fewer `certificates` than `count`, they are repeated.
  Home(const std::filesystem::path& folder, const std::vector<std::string>& certificates,
       std::size_t count);

  // Makes it the home of this process.
  void enter() const;

  [[nodiscard]] std::size_t count() const { return count_; }

  // The folder with the certificates, with a slash at its end.
  [[nodiscard]] const std::string& cache() const { return cache_; }

 private:
  std::string home_;
  std::string cache_;
  std::size_t count_;
};

}  // namespace bench
