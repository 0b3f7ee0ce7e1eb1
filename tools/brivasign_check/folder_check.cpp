#include "brivasign_check/folder_check.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "log/product_folder.h"

namespace diagnosis {
namespace {

Finding checkHome() {
  const char* const home = std::getenv("HOME");
  if (home == nullptr) {
    return {Status::WRONG, "HOME", "the environment variable HOME is not set",
            "start the application from a user's session, where it is set"};
  }
  if (!std::filesystem::path(home).is_absolute()) {
    return {Status::WRONG, "HOME", std::string("\"") + home + "\" is no full path",
            "set HOME to the full path of the user's home folder"};
  }
  return {Status::OK, "HOME", home};
}

Finding checkProductFolder() {
  const std::string subject = "product folder";
  const std::string path = brivasign::productFilePath("");
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    return {Status::WRONG, subject, path + " does not exist",
            "install and start the companion application as this user: it creates the folder"};
  }
  if (!std::filesystem::is_directory(path, ignored)) {
    return {Status::WRONG, subject, path + " is no folder",
            "remove the file and start the companion application, which creates the folder"};
  }
  if (access(path.c_str(), R_OK | W_OK | X_OK) != 0) {
    return {Status::WRONG, subject, path + " may not be read and written by this user",
            "give the folder back to the user, for instance with chown and chmod"};
  }
  return {Status::OK, subject, path};
}

}  // namespace

Findings checkFolder() {
  Findings findings = {checkHome()};
  if (findings.front().status == Status::OK) findings.push_back(checkProductFolder());
  return findings;
}

}  // namespace diagnosis
