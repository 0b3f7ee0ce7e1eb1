#include "home.h"

#include <cstdlib>
#include <fstream>

#include "require.h"

namespace bench {

namespace fs = std::filesystem;

Home::Home(const fs::path& folder, const std::vector<std::string>& certificates, std::size_t count)
    : home_(folder / ("home-" + std::to_string(count))), count_(count) {
  const fs::path product = fs::path(home_) / "Library/Application Support/Orvix";
  cache_ = product / "certificados/";
  fs::create_directories(cache_);
  std::ofstream(product / "maquinaId") << "bench-machine\n";
  for (std::size_t i = 0; i < count; ++i) {
    std::ofstream file(cache_ + std::to_string(i + 1) + ".cer", std::ios::binary);
    file << certificates[i % certificates.size()];
    require(file.good(), "a certificate cannot be written");
  }
}

void Home::enter() const { setenv("HOME", home_.c_str(), 1); }

}  // namespace bench
