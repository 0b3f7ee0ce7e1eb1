#include "brivasign_check/file_look.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "log/product_folder.h"

namespace diagnosis {
namespace {

constexpr std::int64_t MOST_READ = 1 << 20;  // bytes; what is read here has some 2,000 at most

std::string kindOf(mode_t mode) {
  if (S_ISFIFO(mode)) return "a named pipe";
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

std::string nameOf(int rights) {
  if (rights == (R_OK | W_OK)) return "read and write";
  return rights == W_OK ? "write" : "read";
}

}  // namespace

FileLook lookAt(const std::string& path, int rights) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return {.state = FileState::MISSING};
    return {.state = FileState::DENIED,
            .message = "cannot be reached: " + std::system_category().message(errno),
            .advice = "look at the folders on the way to it and at the disk that holds them"};
  }
  if (!S_ISREG(status.st_mode)) {
    return {.state = FileState::NO_FILE,
            .message = "is " + kindOf(status.st_mode) + ", not a file",
            .advice = "remove it",
            .isPipe = S_ISFIFO(status.st_mode)};
  }
  if (access(path.c_str(), rights) == 0) return {.size = status.st_size};
  if (errno == EACCES) {
    return {.state = FileState::DENIED,
            .message = denial(status, nameOf(rights) + " it"),
            .advice = giveBack(path, status)};
  }
  return {.state = FileState::DENIED,
          .message = "cannot be used: " + std::system_category().message(errno),
          .advice = DISK_ADVICE};
}

FileLook lookBeforeReading(const std::string& path) {
  FileLook look = lookAt(path, R_OK);
  if (look.state != FileState::USABLE || look.size <= MOST_READ) return look;
  return {.state = FileState::TOO_LARGE,
          .message = "has " + std::to_string(look.size) + " bytes, far more than such a file has",
          .advice = "look what it holds, and remove it"};
}

std::string userName(uid_t id) {
  passwd entry = {};
  passwd* found = nullptr;
  std::array<char, 4096> buffer{};
  if (getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return std::to_string(id);
}

std::string denial(const struct stat& status, const std::string& what) {
  return "belongs to " + userName(status.st_uid) + ", and " + userName(geteuid()) + " may not " +
         what;
}

std::string giveBack(const std::string& path, const struct stat& status) {
  const char* const home = std::getenv("HOME");
  struct stat homeStatus = {};
  if (home == nullptr || stat(home, &homeStatus) != 0 || homeStatus.st_uid != geteuid()) return "";
  if (status.st_uid == geteuid()) return "allow it: chmod u+rwX " + quoted(path);
  // What a folder above the product's holds besides is not this project's matter.
  const bool takesAll =
      S_ISDIR(status.st_mode) && (path + '/').starts_with(brivasign::productFilePath(""));
  return std::string("give it back: sudo chown ").append(takesAll ? "-R " : "") +
         userName(geteuid()) + " " + quoted(path);
}

std::string quoted(const std::string& path) {
  std::string text = "'";
  for (const char c : path) c == '\'' ? text += R"('\'')" : text += c;
  return text += "'";
}

}  // namespace diagnosis
