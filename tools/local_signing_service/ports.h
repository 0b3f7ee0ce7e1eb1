#pragma once

#include <cstdint>

namespace localservice {

// Where the libraries of this build look for the service: one port for each environment, in the
// order of their indices, beginning with the one that the build was configured with.
inline constexpr std::uint16_t FIRST_PORT = ORVIX_LOCAL_PORT;
inline constexpr std::uint16_t PRODUCTION_PORT = FIRST_PORT + 2;

}  // namespace localservice
