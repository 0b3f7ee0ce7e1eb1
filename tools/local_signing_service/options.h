#pragma once

#include <cstdint>
#include <filesystem>
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
  bool help = false;
};

// Returns the options that the command line, without the program's name, asks for; with `help` the
// others do not count. Throws std::invalid_argument with a sentence that names the bad option.
Options parseOptions(const std::vector<std::string>& arguments);

// Returns the text of --help.
std::string usage();

}  // namespace localservice
