#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "faults.h"
#include "ports.h"
#include "signing_service.h"

namespace localservice {

struct Options {
  std::filesystem::path pki;
  std::uint16_t port = PRODUCTION_PORT;
  ServiceOptions service;
  Faults faults;
  bool asJson = false;
};

// Reads the command line, without the program's name, into `options`. Returns nothing when the
// program is to go on, else the status to end with, as tools::parse does.
std::optional<int> parseOptions(std::vector<std::string> arguments, Options& options);

}  // namespace localservice
