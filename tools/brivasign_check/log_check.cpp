#include "brivasign_check/log_check.h"

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>

#include "brivasign_check/printable.h"
#include "log/product_folder.h"
#include "service/service_environment.h"

namespace diagnosis {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t LINE_COUNT = 10;
constexpr std::size_t LONGEST_LINE = 200;      // bytes
constexpr std::streamoff MOST_READ = 262'144;  // bytes; replies of the service can be long

std::string logPath() { return brivasign::productFilePath("orvix.log"); }

// Replaces every machine identifier of this computer in `text`.
void maskIdentifiers(std::string& text) {
  for (std::size_t i = 0; i < brivasign::ENVIRONMENT_COUNT; ++i) {
    std::string secret = brivasign::readMachineId(static_cast<std::int32_t>(i));
    while (secret.ends_with('\r')) secret.pop_back();
    if (secret.empty()) continue;
    constexpr const char* MASK = "********";
    for (std::size_t at = 0; (at = text.find(secret, at)) != std::string::npos;) {
      text.replace(at, secret.size(), MASK);
      at += std::char_traits<char>::length(MASK);
    }
  }
}

}  // namespace

Finding checkLog() {
  const std::string path = logPath();
  std::error_code error;
  if (!fs::exists(path, error)) {
    return {Status::NOTE, "log", "there is none yet: no application has used the service"};
  }
  if (!fs::is_regular_file(path, error) || access(path.c_str(), R_OK | W_OK) != 0) {
    return {Status::WRONG, "log", path + " is no file that this user may read and write",
            "remove it: the module creates it anew"};
  }
  return {Status::OK, "log", path};
}

std::vector<std::string> lastLogLines() {
  std::vector<std::string> lines;
  std::error_code error;
  if (!fs::is_regular_file(logPath(), error)) return lines;
  std::ifstream file(logPath(), std::ios::binary | std::ios::ate);
  const std::streamoff size = file.tellg();
  file.seekg(size > MOST_READ ? size - MOST_READ : 0);
  std::string line;
  // The first line may begin in the midst of an identifier, which would not be recognised.
  if (size > MOST_READ) std::getline(file, line);
  while (std::getline(file, line)) {
    maskIdentifiers(line);
    lines.push_back(cutTo(LONGEST_LINE, line));
  }
  if (lines.size() > LINE_COUNT) lines.erase(lines.begin(), lines.end() - LINE_COUNT);
  return lines;
}

}  // namespace diagnosis
