#pragma once

namespace brivasign {

// The module's version, in every log line and in every signature request; the build tells it.
inline constexpr const char* MODULE_VERSION = ORVIX_VERSION;

}  // namespace brivasign
