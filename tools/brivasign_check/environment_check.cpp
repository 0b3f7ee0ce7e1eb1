#include "brivasign_check/environment_check.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

#include "log/product_folder.h"

namespace diagnosis {
namespace {

constexpr std::array<const char*, brivasign::ENVIRONMENT_COUNT> ENVIRONMENT_NAMES = {
    "development", "homologation", "production", "test"};

constexpr const char* ENVIRONMENT_ADVICE =
    "remove the file to use production, or write one digit into it: 0 development, "
    "1 homologation, 2 production, 3 test";

// Returns whether the environment is read from a number, as opposed to the lack of one.
bool beginsWithNumber(const std::string& line) {
  char* end = nullptr;
  std::strtol(line.c_str(), &end, 10);
  return end != line.c_str();
}

}  // namespace

Finding checkEnvironment(const brivasign::EnvironmentChoice& choice) {
  const auto index = static_cast<std::size_t>(choice.index);
  const brivasign::ServiceEnvironment& environment = brivasign::serviceEnvironments[index];
  const std::string name = ENVIRONMENT_NAMES[index];
  const std::string path = brivasign::productFilePath("ambiente");
  Finding finding = {.subject = "environment", .message = {}};
  finding.facts = {{"environment", name}, {"host", environment.host}, {"port", environment.port}};

  std::error_code ignored;
  if (!choice.line && !std::filesystem::exists(path, ignored)) {
    finding.message = name + ", the default, because there is no file ambiente";
  } else if (!choice.line) {
    finding.status = Status::WRONG;
    finding.message = name + ", the default, because " + path + " cannot be read";
    finding.advice = "let this user read the file, or remove it";
  } else if (!choice.isValid) {
    finding.status = Status::WRONG;
    finding.message = name + ", the default, because the file ambiente says \"" + *choice.line +
                      "\", which is no environment";
    finding.advice = ENVIRONMENT_ADVICE;
  } else if (!beginsWithNumber(*choice.line)) {
    finding.status = Status::WRONG;
    finding.message = name + ", because the first line of the file ambiente, \"" + *choice.line +
                      "\", begins with no number, which counts as 0";
    finding.advice = ENVIRONMENT_ADVICE;
  } else {
    finding.message = name + ", because the file ambiente says \"" + *choice.line + "\"";
  }
  return finding;
}

Finding checkMachineId(std::int32_t index) {
  const char* const file =
      brivasign::serviceEnvironments[static_cast<std::size_t>(index)].machineIdFile;
  const std::string identifier = brivasign::readMachineId(index);
  const std::string subject = "machine identifier";
  if (identifier.empty()) {
    return {Status::WRONG, subject,
            std::string("the file ") + file + " is missing, not readable, or its first line empty",
            "register this computer with the companion application in this environment"};
  }
  // It becomes a header's value as it stands.
  const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
  if (std::any_of(identifier.begin(), identifier.end(), isControl)) {
    return {Status::WRONG, subject,
            std::string("the first line of ") + file + " holds a control character",
            "write the file anew, without a carriage return at the line's end, or register again"};
  }
  return {Status::OK, subject,
          "******** (" + std::to_string(identifier.size()) + " characters in " + file + ")"};
}

}  // namespace diagnosis
