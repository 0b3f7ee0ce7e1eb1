#pragma once

#include <filesystem>

namespace bench {

// A folder of its own in `parent`; removed at the end.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::filesystem::path& parent);
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace bench
