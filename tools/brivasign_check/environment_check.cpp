#include "brivasign_check/environment_check.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "brivasign_check/file_look.h"
#include "printable.h"
#include "product/product_folder.h"

namespace diagnosis {
namespace {

constexpr const char* FILE_NAME = "ambiente";

constexpr std::array<const char*, brivasign::ENVIRONMENT_COUNT> ENVIRONMENT_NAMES = {
    "development", "homologation", "production", "test"};

constexpr const char* ENVIRONMENT_ADVICE =
    "remove it to use production, or put one digit into a file of this name: 0 development, "
    "1 homologation, 2 production, 3 test";

constexpr const char* WAITS = ": signing waits for it for ever";

constexpr std::size_t LONGEST_LINE = 40;  // bytes

bool isPlain(unsigned char c) { return c >= ' ' && c < 0x7F; }

// Returns `line` in quotes; what would not be seen shows as '?', a byte order mark for instance.
std::string shown(std::string line) {
  while (line.ends_with('\r')) line.pop_back();
  std::replace_if(line.begin(), line.end(), std::not_fn(isPlain), '?');
  return "\"" + tools::cutTo(LONGEST_LINE, line) + "\"";
}

// Returns whether the environment is read from a number, as opposed to the lack of one.
bool beginsWithNumber(const std::string& line) {
  char* end = nullptr;
  std::strtol(line.c_str(), &end, 10);
  return end != line.c_str();
}

// Returns whether editors have marked `line` as the start of a text in UTF-8 or UTF-16.
bool beginsWithMark(const std::string& line) {
  return line.starts_with("\xEF\xBB\xBF") || line.starts_with("\xFF\xFE") ||
         line.starts_with("\xFE\xFF");
}

// Judges a choice that the file, of `size` bytes, may have made.
Finding judge(const brivasign::EnvironmentChoice& choice, std::int64_t size) {
  const std::string name = ENVIRONMENT_NAMES[static_cast<std::size_t>(choice.index)];
  if (!choice.line) {
    return {Status::OK, "environment.default", name + ", because there is no such file"};
  }
  const std::string line = shown(*choice.line);
  if (!choice.isValid) {
    return {Status::WRONG, "environment.unknown",
            "says " + line + ", which is no environment: " + name + " is used", ENVIRONMENT_ADVICE};
  }
  if (!beginsWithNumber(*choice.line)) {
    std::string cause = "its first line, " + line + ", begins with no number";
    if (beginsWithMark(*choice.line)) cause = line + " begins with a byte order mark";
    if (choice.line->empty()) cause = "its first line is empty";
    if (size == 0) cause = "is empty";
    return {Status::WRONG, "environment.no-number",
            cause + ", which counts as 0: " + name + " is used", ENVIRONMENT_ADVICE};
  }
  return {Status::OK, "environment.ok", name + ", because it says " + line};
}

EnvironmentCheck readEnvironment() {
  const FileLook look = lookBeforeReading(brivasign::productFilePath(FILE_NAME));
  switch (look.state) {
    case FileState::NO_FILE:
      if (look.isFolder) {
        return {brivasign::ENV_DEVELOPMENT,
                {Status::WRONG, "environment.not-a-file",
                 look.message + ", which counts as 0: development is used", ENVIRONMENT_ADVICE}};
      }
      return {.finding = {Status::WRONG, "environment.not-a-file",
                          look.message + (look.isPipe ? WAITS : ": signing may go elsewhere"),
                          ENVIRONMENT_ADVICE}};
    case FileState::TOO_LARGE:
      return {.finding = {Status::WRONG, "environment.too-large",
                          look.message + ": it was not read, and may select any environment",
                          ENVIRONMENT_ADVICE}};
    case FileState::DENIED:
      return {.finding = {Status::WRONG, "environment.denied",
                          look.message + ": production is used", look.advice}};
    case FileState::MISSING:
      if (look.message.empty()) break;
      return {.finding = {Status::WRONG, "environment.missing",
                          look.message + ": production is used", ENVIRONMENT_ADVICE}};
    case FileState::USABLE:
      break;
  }
  const brivasign::EnvironmentChoice choice = brivasign::readEnvironmentChoice();
  return {choice.index, judge(choice, look.size)};
}

// Looks at the machine identifier in `file`, that of environment `index`.
Finding checkMachineId(const char* file, std::int32_t index) {
  const FileLook look = lookBeforeReading(brivasign::productFilePath(file));
  constexpr const char* REGISTER =
      "register this computer with the companion application in this environment";
  switch (look.state) {
    case FileState::MISSING:
      if (look.message.empty()) {
        return {Status::WRONG, "machine-identifier.missing", "there is no such file", REGISTER};
      }
      return {Status::WRONG, "machine-identifier.missing", look.message,
              look.advice + ", and " + REGISTER};
    case FileState::NO_FILE:
      return {Status::WRONG, "machine-identifier.not-a-file",
              look.message + (look.isPipe ? WAITS : ": signing goes without it"),
              look.advice + " and " + REGISTER};
    case FileState::DENIED:
      return {Status::WRONG, "machine-identifier.denied", look.message, look.advice};
    case FileState::TOO_LARGE:
      return {Status::WRONG, "machine-identifier.too-large", look.message,
              look.advice + ", and " + REGISTER};
    case FileState::USABLE:
      break;
  }
  const std::string identifier = brivasign::readMachineId(index);
  if (identifier.empty()) {
    return {Status::WRONG, "machine-identifier.empty",
            look.size == 0 ? "is empty" : "its first line is empty", REGISTER};
  }
  // It becomes a header's value as it stands.
  constexpr const char* WRITE_ANEW = "write the file anew without it, or register again";
  if (!std::all_of(identifier.begin(), identifier.end(), isPlain)) {
    std::string what = "what is no printable character of ASCII";
    if (identifier.find('\r') != std::string::npos) what = "a carriage return";
    if (beginsWithMark(identifier)) what = "a byte order mark";
    return {Status::WRONG, "machine-identifier.unprintable", "its first line holds " + what,
            WRITE_ANEW};
  }
  if (identifier.find_first_not_of(' ') == std::string::npos) {
    return {Status::WRONG, "machine-identifier.blank", "its first line holds nothing but blanks",
            REGISTER};
  }
  if (identifier.starts_with(' ') || identifier.ends_with(' ')) {
    return {Status::WRONG, "machine-identifier.blank", "its first line begins or ends with a blank",
            WRITE_ANEW};
  }
  return {Status::OK, "machine-identifier.ok",
          "holds " + std::to_string(identifier.size()) + " characters, which are not shown"};
}

}  // namespace

EnvironmentCheck checkEnvironment(bool hasFolder, const TimeLimit& limit) {
  EnvironmentCheck check;
  if (hasFolder) {
    check = limit.run(FILE_NAME, readEnvironment)
                .value_or(EnvironmentCheck{.finding = {Status::WRONG, "environment.timeout",
                                                       limit.exceeded(), DISK_ADVICE}});
  } else {
    check.finding = {Status::NOTE, "environment.unseen", UNSEEN};
  }
  const auto index = static_cast<std::size_t>(check.index);
  const brivasign::ServiceEnvironment& environment = brivasign::serviceEnvironments[index];
  check.finding.entry = FILE_NAME;
  if (check.finding.status != Status::OK) {
    check.finding.message.append("; what follows is about ").append(ENVIRONMENT_NAMES[index]);
  }
  check.finding.facts = {{"environment", ENVIRONMENT_NAMES[index]},
                         {"host", environment.host},
                         {"port", std::strtol(environment.port, nullptr, 10)}};
  return check;
}

Findings checkMachineIds(const EnvironmentCheck& environment, const TimeLimit& limit) {
  Findings findings;
  for (std::int32_t i = 0; i < static_cast<std::int32_t>(brivasign::ENVIRONMENT_COUNT); ++i) {
    const char* const file =
        brivasign::serviceEnvironments[static_cast<std::size_t>(i)].machineIdFile;
    if (i == environment.index) {
      findings.push_back(limit.run(file, [file, i] { return checkMachineId(file, i); })
                             .value_or(Finding{Status::WRONG, "machine-identifier.timeout",
                                               limit.exceeded(), DISK_ADVICE}));
      Finding& finding = findings.back();
      if (finding.status != Status::OK && environment.finding.status == Status::WRONG) {
        finding.advice = std::string("mend ") + FILE_NAME + " first, then run this again";
      }
    } else {
      const auto look = limit.run(
          file, [path = brivasign::productFilePath(file)] { return lookBeforeReading(path); });
      if (!look || look->state != FileState::NO_FILE) continue;
      findings.push_back({Status::NOTE, "machine-identifier.unused-not-a-file",
                          look->message + "; its environment is not selected", look->advice});
    }
    findings.back().entry = file;
  }
  return findings;
}

}  // namespace diagnosis
