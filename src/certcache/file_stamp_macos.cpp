#include "certcache/file_stamp.h"

namespace brivasign {

FileStamp fileStamp(const struct stat& status) {
  return {.device = static_cast<std::uint64_t>(status.st_dev),
          .inode = status.st_ino,
          .size = status.st_size,
          .contentTime = nanoseconds(status.st_mtimespec),
          .attributeTime = nanoseconds(status.st_ctimespec)};
}

}  // namespace brivasign
