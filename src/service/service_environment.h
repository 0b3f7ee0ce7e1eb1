#pragma once

#include <array>
#include <cstdint>
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

// Reads the environment index, always 0 to 3, from the first line of the file "ambiente" in the
// product folder. Without the file it is ENV_PRODUCTION; a line that begins with no number means 0;
// a number outside 0 to 3 is logged and means ENV_PRODUCTION.
std::int32_t readEnvironmentIndex();

// Reads the identifier that the service issued to this computer for environment `index` (0 to 3):
// the first line of the environment's file as it stands, empty when the file cannot be read.
std::string readMachineId(std::int32_t index);

}  // namespace brivasign
