#include "brivasign_check/notification_check.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string_view>

#include "service/notification_command.h"

namespace diagnosis {
namespace {

Finding findProgram() {
  const std::string_view command = brivasign::NOTIFICATION_COMMAND;
  const std::string program(command.substr(0, command.find(' ')));
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string file = folder.append("/").append(program);
    if (access(file.c_str(), X_OK) == 0) return {Status::OK, "notification.ok", file};
  }
  return {Status::NOTE, "notification.missing",
          "there is no program " + program +
              " in PATH: signing works, but no notification says that the phone asks for the PIN",
          "on macOS, add /usr/bin to PATH; other systems have no such program"};
}

}  // namespace

Finding checkNotification(const TimeLimit& limit) {
  return limit.run("the folders of PATH", findProgram)
      .value_or(Finding{Status::WRONG, "notification.timeout", limit.exceeded(),
                        "look at the disks or servers that hold the folders of PATH"});
}

}  // namespace diagnosis
