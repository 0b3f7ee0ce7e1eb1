#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace brivasign {

// One deployment of the signing service; zero-terminated texts.
struct ServiceEnvironment {
  const char* host;
  const char* port;           // decimal
  const char* machineIdFile;  // name of the file in the product folder
};

constexpr std::int32_t ENV_DEVELOPMENT = 0;
constexpr std::int32_t ENV_HOMOLOGATION = 1;
constexpr std::int32_t ENV_PRODUCTION = 2;
constexpr std::int32_t ENV_TEST = 3;
constexpr std::size_t ENVIRONMENT_COUNT = 4;

// The four deployments by environment index. Host names and ports come from the deployment folder
// that the module is built with.
extern const std::array<ServiceEnvironment, ENVIRONMENT_COUNT> serviceEnvironments;

// Which environment is selected, and what the file "ambiente" in the product folder says about it.
struct EnvironmentChoice {
  std::int32_t index = ENV_PRODUCTION;  // always 0 to 3
  std::optional<std::string> line{};    // the file's first line; nothing when it cannot be opened
  bool isValid = true;                  // false: the line begins with a number outside 0 to 3
};

// Reads the choice. Without the file, and for a number outside 0 to 3, it is ENV_PRODUCTION; a line
// that begins with no number means 0. Writes nothing.
EnvironmentChoice readEnvironmentChoice();

// Returns the index of the choice; a number outside 0 to 3 is logged.
std::int32_t readEnvironmentIndex();

// Reads the identifier that the service issued to this computer for environment `index` (0 to 3):
// the first line of the environment's file as it stands, empty when the file cannot be read.
std::string readMachineId(std::int32_t index);

}  // namespace brivasign
