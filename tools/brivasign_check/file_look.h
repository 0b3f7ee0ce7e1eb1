#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace diagnosis {

inline constexpr const char* DISK_ADVICE = "look at the disk or server that holds it";

enum class FileState {
  USABLE,
  MISSING,
  NO_FILE,    // something else bears the name
  DENIED,     // or broken
  TOO_LARGE,  // to be read, and to be what it should be
};

// What a file looks like from outside.
struct FileLook {
  FileState state = FileState::USABLE;
  std::string message{};  // why it is not usable; empty when nothing bears the name
  std::string advice{};   // what to do about it
  bool isPipe = false;
  bool isFolder = false;
  std::int64_t size = 0;  // in bytes
};

// Looks at the file at `path` without opening it, since opening a named pipe can wait for ever.
// `rights` are those of access() that this user needs.
FileLook lookAt(const std::string& path, int rights);

// The same for a file that is to be read in a moment: it is not too large for that either.
FileLook lookBeforeReading(const std::string& path);

// Returns the name of user `id`; its number when it has none.
std::string userName(uid_t id);

// Returns whether a link bears the name `path` and what it leads to is missing, or itself.
bool isDeadLink(const std::string& path);

// Say so, and what to do.
inline constexpr const char* DEAD_LINK = "is a link that leads nowhere";
inline constexpr const char* DEAD_LINK_ADVICE =
    "bring back the file, folder or disk that it leads to, or remove the link";

struct Denial {
  std::string message;
  std::string advice;  // empty when HOME is somebody else's
};

// Tells why this user may not do `what`, "read it" for instance, with the file or folder `path`.
Denial denial(const std::string& path, const std::string& what);

// Returns what lets this user use `path`, which has `status` and is denied: commands of the shell;
// nothing when it is a link, or when HOME is somebody else's.
std::string giveBack(const std::string& path, const struct stat& status);

// Returns `path` in quotes of the shell.
std::string quoted(const std::string& path);

}  // namespace diagnosis
