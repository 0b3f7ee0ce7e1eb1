#include "scratch_folder.h"

#include <cstdlib>
#include <string>
#include <system_error>

#include "require.h"

namespace bench {

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder(const fs::path& parent) {
  std::string name = parent / "bench-XXXXXX";
  require(mkdtemp(name.data()) != nullptr, "there is no place for a scratch folder");
  path_ = name;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace bench
