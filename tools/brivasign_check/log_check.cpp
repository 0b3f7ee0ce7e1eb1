#include "brivasign_check/log_check.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <optional>

#include "brivasign_check/file_look.h"
#include "printable.h"
#include "product/product_folder.h"
#include "service/service_environment.h"

namespace diagnosis {
namespace {

constexpr const char* LOG = "orvix.log";
constexpr const char* UPDATE_FLAG = "atualizar";
constexpr const char* KEPT_BY_LINK = ": it is written only if what it leads to can be made";
constexpr std::size_t LINE_COUNT = 10;
constexpr std::size_t LONGEST_LINE = 200;      // bytes
constexpr std::streamoff MOST_READ = 262'144;  // bytes; replies of the service can be long
constexpr std::int64_t MIB = 1 << 20;
constexpr std::int64_t LARGE = 10 * MIB;

bool isSeen(char c) { return c > ' ' && c < 0x7F; }

// Returns the machine identifiers of this computer, the longest first; nothing when there is one
// that cannot be read.
std::optional<std::vector<std::string>> secrets() {
  std::vector<std::string> identifiers;
  for (std::size_t i = 0; i < brivasign::ENVIRONMENT_COUNT; ++i) {
    const char* const file = brivasign::serviceEnvironments[i].machineIdFile;
    const FileLook look = lookBeforeReading(brivasign::productFilePath(file));
    if (look.state == FileState::MISSING || look.state == FileState::NO_FILE) continue;
    if (look.state != FileState::USABLE) return std::nullopt;
    std::string identifier = brivasign::readMachineId(static_cast<std::int32_t>(i));
    // What cannot be seen around it, the service may leave out.
    while (!identifier.empty() && !isSeen(identifier.back())) identifier.pop_back();
    identifier.erase(identifier.begin(),
                     std::find_if(identifier.begin(), identifier.end(), isSeen));
    if (!identifier.empty()) identifiers.push_back(identifier);
  }
  // Without the shorter one that it begins with, the rest of a longer one would stay visible.
  std::sort(identifiers.begin(), identifiers.end(),
            [](const auto& a, const auto& b) { return a.size() > b.size(); });
  return identifiers;
}

// Replaces every one of `identifiers`, the longest first, in `text`.
void mask(std::string& text, const std::vector<std::string>& identifiers) {
  constexpr const char* MASK = "********";
  for (const std::string& identifier : identifiers) {
    for (std::size_t at = 0; (at = text.find(identifier, at)) != std::string::npos;) {
      text.replace(at, identifier.size(), MASK);
      at += std::char_traits<char>::length(MASK);
    }
  }
}

std::vector<std::string> lastLines(const std::string& path,
                                   const std::vector<std::string>& identifiers) {
  std::vector<std::string> lines;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const std::streamoff size = file.tellg();
  file.seekg(size > MOST_READ ? size - MOST_READ : 0);
  std::string line;
  // The first line may begin in the midst of an identifier, which would not be recognised.
  if (size > MOST_READ) std::getline(file, line);
  while (std::getline(file, line)) {
    mask(line, identifiers);
    lines.push_back(tools::cutTo(LONGEST_LINE, line));
  }
  if (lines.size() > LINE_COUNT) lines.erase(lines.begin(), lines.end() - LINE_COUNT);
  return lines;
}

// Judges the log at `path`.
Finding judge(const std::string& path, const FileLook& look) {
  const std::string unkept = ": the module's messages are not kept";
  switch (look.state) {
    case FileState::MISSING:
      return {Status::NOTE, "log.missing",
              look.message.empty()
                  ? "there is none: nothing has been signed or failed, or it could not be written"
                  : look.message + KEPT_BY_LINK,
              look.advice};
    case FileState::NO_FILE:
      if (look.isPipe) {
        return {Status::WRONG, "log.pipe",
                look.message + unkept + ", and applications may wait for it for ever", look.advice};
      }
      return {Status::NOTE, "log.not-a-file", look.message + unkept, look.advice};
    case FileState::DENIED:
      return {Status::NOTE, "log.denied", look.message + unkept, look.advice};
    case FileState::USABLE:
    case FileState::TOO_LARGE:
      break;
  }
  const Facts facts = {{"sizeBytes", look.size}};
  if (look.size > LARGE) {
    return {Status::NOTE, "log.large",
            "has " + std::to_string(look.size / MIB) + " MiB, and the module never shortens it",
            "when nobody needs it any more, empty it: cp /dev/null " + quoted(path), facts};
  }
  return {Status::OK, "log.ok", path, "", facts};
}

LogCheck lookAtLog() {
  const std::string path = brivasign::productFilePath(LOG);
  LogCheck check = {judge(path, lookAt(path, R_OK | W_OK)), {}};
  // One that cannot be written may be readable all the same.
  if (lookAt(path, R_OK).state != FileState::USABLE) return check;
  if (const auto identifiers = secrets()) {
    check.lines = lastLines(path, *identifiers);
  } else {
    check.finding.message +=
        "; its lines are left out, because an identifier that cannot be read cannot be masked";
  }
  return check;
}

Finding lookAtUpdateFlag() {
  const FileLook look = lookAt(brivasign::productFilePath(UPDATE_FLAG), W_OK);
  const std::string unset = ": an update that the service announces is not noted";
  switch (look.state) {
    case FileState::MISSING:
      if (look.message.empty()) {
        return {Status::OK, "update-flag.ok", "there is none: no update has been noted"};
      }
      return {Status::NOTE, "update-flag.missing", look.message + KEPT_BY_LINK, look.advice};
    case FileState::NO_FILE:
      if (look.isPipe) {
        return {Status::WRONG, "update-flag.pipe",
                look.message + ": signing waits for ever when the service announces an update",
                look.advice};
      }
      return {Status::NOTE, "update-flag.not-a-file", look.message + unset, look.advice};
    case FileState::DENIED:
      return {Status::NOTE, "update-flag.denied", look.message + unset, look.advice};
    case FileState::USABLE:
    case FileState::TOO_LARGE:
      break;
  }
  return {Status::OK, "update-flag.set", "the service has announced an update"};
}

}  // namespace

LogCheck checkLog(const TimeLimit& limit) {
  LogCheck check =
      limit.run(LOG, lookAtLog)
          .value_or(LogCheck{{Status::WRONG, "log.timeout", limit.exceeded(), DISK_ADVICE}, {}});
  check.finding.entry = LOG;
  return check;
}

Finding checkUpdateFlag(const TimeLimit& limit) {
  Finding finding =
      limit.run(UPDATE_FLAG, lookAtUpdateFlag)
          .value_or(Finding{Status::WRONG, "update-flag.timeout", limit.exceeded(), DISK_ADVICE});
  finding.entry = UPDATE_FLAG;
  return finding;
}

}  // namespace diagnosis
