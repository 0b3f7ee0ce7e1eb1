#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace brivasign {

// What tells one content of a file from another without reading it. Times are in nanoseconds since
// 1970.
struct FileStamp {
  bool operator==(const FileStamp&) const = default;

  std::uint64_t device;
  std::uint64_t inode;
  std::int64_t size;           // bytes
  std::int64_t contentTime;    // of the last change of the content
  std::int64_t attributeTime;  // of the last change of anything; nobody can set it back
};

constexpr std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// Returns the stamp of the file that the system describes by `status`.
FileStamp fileStamp(const struct stat& status);

}  // namespace brivasign
