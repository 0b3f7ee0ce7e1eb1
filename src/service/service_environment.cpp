#include "service/service_environment.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "log/log.h"
#include "product/product_folder.h"

namespace brivasign {

EnvironmentChoice readEnvironmentChoice() {
  std::ifstream file(productFilePath("ambiente"));
  if (!file.is_open()) return {};

  std::string line;
  std::getline(file, line);
  const std::int32_t index = std::atoi(line.c_str());  // NOLINT(cert-err34-c): no digits mean 0
  const bool isValid = static_cast<std::uint32_t>(index) < ENVIRONMENT_COUNT;
  return {isValid ? index : ENV_PRODUCTION, line, isValid};
}

std::int32_t readEnvironmentIndex() {
  const EnvironmentChoice choice = readEnvironmentChoice();
  if (!choice.isValid) writeLog("valor invalido para ambiente, usando valor 2 (producao)");
  return choice.index;
}

std::string readMachineId(std::int32_t index) {
  const ServiceEnvironment& environment = serviceEnvironments[static_cast<std::size_t>(index)];
  std::ifstream file(productFilePath(environment.machineIdFile));
  std::string identifier;
  // Not std::getline, which takes a lack of memory for the line's end.
  for (int c; (c = file.get()) != EOF && c != '\n';) identifier.push_back(static_cast<char>(c));
  return identifier;
}

}  // namespace brivasign
