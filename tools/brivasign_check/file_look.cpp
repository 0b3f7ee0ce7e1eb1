#include "brivasign_check/file_look.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "product/product_folder.h"

namespace diagnosis {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t MOST_READ = 1 << 20;  // bytes; what is read here has some 2,000 at most

std::string kindOf(mode_t mode) {
  if (S_ISFIFO(mode)) return "a named pipe";
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

std::string nameOf(int rights) {
  if (rights == (R_OK | W_OK)) return "read or write";
  return rights == W_OK ? "write" : "read";
}

struct User {
  std::string name;
  std::string home{};
};

User userOf(uid_t id) {
  passwd entry = {};
  passwd* found = nullptr;
  std::array<char, 4096> buffer{};
  if (getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return {found->pw_name, found->pw_dir};
  }
  return {std::to_string(id)};
}

// Returns whether `home`, the value of HOME, is this user's: by its owner, or, since root may have
// taken it, by what the system has noted.
bool isOwn(const std::string& home) {
  struct stat status = {};
  return (stat(home.c_str(), &status) == 0 && status.st_uid == geteuid()) ||
         home == userOf(geteuid()).home;
}

fs::path targetOf(const fs::path& link) {
  std::error_code ignored;
  return link.parent_path() / fs::read_symlink(link, ignored);
}

// Returns what denies `path`: itself, or, of a link, what it leads to or a folder on the way there.
fs::path denyingPart(const fs::path& path) {
  std::error_code ignored;
  if (!fs::is_symlink(path, ignored)) return path;
  fs::path walked;
  for (const fs::path& part : targetOf(path)) {
    if (access((walked /= part).c_str(), X_OK) != 0) break;
  }
  return denyingPart(walked);
}

std::string denialBy(const struct stat& status, const std::string& what) {
  const std::string user = userName(geteuid());
  std::array<char, sizeof "7777"> mode{};
  std::snprintf(mode.data(), mode.size(), "%03o", static_cast<unsigned>(status.st_mode & 07777U));
  const std::string owner = "belongs to " + userName(status.st_uid) + " (mode " + mode.data() + ")";
  return owner + (status.st_uid == geteuid() ? ", and even so " : ", and ") + user + " may not " +
         what;
}

FileLook deniedFile(const std::string& path, int rights) {
  const auto [message, advice] = denial(path, nameOf(rights) + " it");
  return {.state = FileState::DENIED, .message = message, .advice = advice};
}

}  // namespace

FileLook lookAt(const std::string& path, int rights) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    const int error = errno;
    if (isDeadLink(path)) {
      return {.state = FileState::MISSING, .message = DEAD_LINK, .advice = DEAD_LINK_ADVICE};
    }
    if (error == ENOENT) return {.state = FileState::MISSING};
    if (error == EACCES) return deniedFile(path, rights);
    return {.state = FileState::DENIED,
            .message = "cannot be reached: " + std::system_category().message(error),
            .advice = "look at the folders on the way to it and at the disk that holds them"};
  }
  if (!S_ISREG(status.st_mode)) {
    return {.state = FileState::NO_FILE,
            .message = "is " + kindOf(status.st_mode) + ", not a file",
            .advice = "remove it",
            .isPipe = S_ISFIFO(status.st_mode),
            .isFolder = S_ISDIR(status.st_mode)};
  }
  int denied = 0;
  int error = 0;
  for (const int right : {R_OK, W_OK}) {
    if ((rights & right) == 0 || access(path.c_str(), right) == 0) continue;
    denied |= right;
    error = errno;
  }
  if (denied == 0) return {.size = status.st_size};
  if (error == EACCES) return deniedFile(path, denied);
  return {.state = FileState::DENIED,
          .message = "cannot be used: " + std::system_category().message(error),
          .advice = DISK_ADVICE};
}

FileLook lookBeforeReading(const std::string& path) {
  FileLook look = lookAt(path, R_OK);
  if (look.state != FileState::USABLE || look.size <= MOST_READ) return look;
  return {.state = FileState::TOO_LARGE,
          .message = "has " + std::to_string(look.size) + " bytes, far more than such a file has",
          .advice = "look what it holds, and remove it"};
}

std::string userName(uid_t id) { return userOf(id).name; }

bool isDeadLink(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ELOOP) &&
         lstat(path.c_str(), &status) == 0;
}

Denial denial(const std::string& path, const std::string& what) {
  const fs::path part = denyingPart(path);
  struct stat status = {};
  stat(part.c_str(), &status);
  if (part == path) return {denialBy(status, what), giveBack(path, status)};
  const fs::path target = targetOf(path);
  const bool isShut = S_ISDIR(status.st_mode) && access(part.c_str(), X_OK) != 0;
  return {"is a link to " + target.string() +
              (part == target ? ", which " : "; " + part.string() + " ") +
              denialBy(status, isShut ? "enter it" : what),
          "have the owner allow it, or put what is this user's own in the link's place"};
}

std::string giveBack(const std::string& path, const struct stat& status) {
  const char* const variable = std::getenv("HOME");
  std::string home = variable == nullptr ? "" : variable;
  while (home.ends_with('/')) home.pop_back();
  std::error_code ignored;
  if (!isOwn(home) || fs::is_symlink(path, ignored)) return "";
  if (home.starts_with(path + '/')) return "let users through: sudo chmod a+x " + quoted(path);
  // What a folder above the product's holds besides is not this project's matter.
  const bool isFolder = S_ISDIR(status.st_mode);
  const fs::path product = fs::path(brivasign::productFilePath("")).lexically_normal();
  const bool takesAll = isFolder && (path + '/').starts_with(product.string());
  const std::string all = takesAll ? "-R " : "";
  const mode_t needed = isFolder ? S_IRWXU : S_IRUSR | S_IWUSR;
  const std::string allow = "chmod " + all + "u+rwX " + quoted(path);
  if (status.st_uid == geteuid()) return "allow it: " + allow;
  return "give it back: sudo chown " + all + quoted(userName(geteuid())) + " " + quoted(path) +
         ((status.st_mode & needed) == needed ? "" : " && " + allow);
}

std::string quoted(const std::string& path) {
  std::string text = "'";
  for (const char c : path) c == '\'' ? text += R"('\'')" : text += c;
  return text += "'";
}

}  // namespace diagnosis
