#include "brivasign_check/folder_check.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "brivasign_check/file_look.h"
#include "product/product_folder.h"

namespace diagnosis {
namespace {

constexpr const char* OWN_HOME = "set HOME to the full path of the user's home folder";

// How far this user gets on the way to a folder.
struct Way {
  std::string end;  // the folder, or what is in the way
  struct stat status = {};
  int error = 0;  // of the system; 0: the folder can be entered
};

Way wayTo(const std::string& folder) {
  std::filesystem::path walked;
  Way way;
  for (const std::filesystem::path& part : std::filesystem::path(folder)) {
    way.end = (walked /= part).string();
    if (stat(way.end.c_str(), &way.status) != 0 ||
        (S_ISDIR(way.status.st_mode) && access(way.end.c_str(), X_OK) != 0)) {
      way.error = errno;
    } else if (!S_ISDIR(way.status.st_mode)) {
      way.error = ENOTDIR;
    }
    if (way.error != 0) return way;
  }
  return way;
}

// Tells why `way` ends before its folder, but for what is missing or no folder.
Denial reasonOf(const Way& way) {
  const auto [message, advice] =
      way.error == EACCES
          ? denial(way.end, "enter it")
          : Denial{"cannot be entered: " + std::system_category().message(way.error), DISK_ADVICE};
  return {way.end + " " + message, advice};
}

// Returns whether nothing more can be written to the disk that holds `folder`. Some do not count.
bool isFull(const std::string& folder) {
  struct statvfs disk = {};
  return statvfs(folder.c_str(), &disk) == 0 &&
         ((disk.f_blocks != 0 && disk.f_bavail == 0) || (disk.f_files != 0 && disk.f_favail == 0));
}

Finding checkHome() {
  const char* const home = std::getenv("HOME");
  if (home == nullptr) {
    return {Status::WRONG, "home.unset", "the environment variable HOME is not set",
            "start the application from a user's session, where it is set"};
  }
  if (!std::filesystem::path(home).is_absolute()) {
    return {Status::WRONG, "home.relative", std::string("\"") + home + "\" is no full path",
            OWN_HOME};
  }
  const Way way = wayTo(home);
  if (way.error != 0 && isDeadLink(way.end)) {
    return {Status::WRONG, "home.missing", way.end + " " + DEAD_LINK, DEAD_LINK_ADVICE};
  }
  if (way.error == ENOENT) {
    return {Status::WRONG, "home.missing", std::string("there is no folder ") + home, OWN_HOME};
  }
  if (way.error == ENOTDIR) {
    return {Status::WRONG, "home.not-a-folder", way.end + " is no folder", OWN_HOME};
  }
  if (way.error != 0) {
    const auto [message, advice] = reasonOf(way);
    return {Status::WRONG, "home.denied", message, advice.empty() ? OWN_HOME : advice};
  }
  if (way.status.st_uid != geteuid() && geteuid() != 0) {
    const std::string owner = userName(way.status.st_uid);
    const std::string advice = giveBack(home, way.status);
    return {Status::NOTE, "home.foreign", std::string(home) + " belongs to " + owner,
            advice.empty() ? "if it is the application of " + owner +
                                 " that does not work, run this as " + owner
                           : advice};
  }
  return {Status::OK, "home.ok", home};
}

Finding checkProductFolder() {
  std::string path = brivasign::productFilePath("");
  path.pop_back();
  const Way way = wayTo(path);
  if (way.error != 0 && isDeadLink(way.end)) {
    return {Status::WRONG, "product-folder.missing", way.end + " " + DEAD_LINK, DEAD_LINK_ADVICE};
  }
  if (way.error == ENOENT) {
    return {Status::WRONG, "product-folder.missing", path + " does not exist",
            "install and start the companion application as this user: it creates the folder"};
  }
  if (way.error == ENOTDIR) {
    return {Status::WRONG, "product-folder.not-a-folder", way.end + " is no folder",
            "remove it and start the companion application, which creates the folder"};
  }
  if (way.error != 0) {
    const auto [message, advice] = reasonOf(way);
    return {Status::WRONG, "product-folder.denied", message, advice};
  }
  if (access(path.c_str(), W_OK) == 0) {
    if (!isFull(path)) return {Status::OK, "product-folder.ok", path};
    return {Status::NOTE, "product-folder.full",
            "the disk that holds " + path + " is full: signing works, but the log is not kept",
            "make room on it"};
  }
  const int error = errno;
  const auto [reason, advice] =
      error == EACCES
          ? denial(path, "write to it")
          : Denial{"cannot be written to: " + std::system_category().message(error), DISK_ADVICE};
  return {Status::NOTE, "product-folder.read-only",
          path + " " + reason + ": signing works, but no log and no update flag can be made",
          advice};
}

Findings checkFolders() {
  Findings findings = {checkHome()};
  findings.push_back(findings.front().status != Status::WRONG
                         ? checkProductFolder()
                         : Finding{Status::NOTE, "product-folder.unseen",
                                   "not looked at, because the home folder cannot be used"});
  return findings;
}

}  // namespace

std::string currentUser(const TimeLimit& limit) {
  const uid_t id = geteuid();
  return limit.run("the name of the user", [id] { return userName(id); })
      .value_or(std::to_string(id));
}

Finding checkUser(const std::string& user) {
  if (geteuid() != 0) return {Status::OK, "user.ok", user};
  return {
      Status::NOTE, "user.root",
      user + ", to whom nothing is denied: what another user may not read or write does not show",
      "run this as the user whose application does not work, without sudo"};
}

Findings checkFolder(const TimeLimit& limit) {
  return limit.run("the product folder", checkFolders)
      .value_or(Findings{{Status::WRONG, "product-folder.timeout", limit.exceeded(), DISK_ADVICE}});
}

}  // namespace diagnosis
