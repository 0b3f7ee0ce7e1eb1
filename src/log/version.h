#pragma once

namespace brivasign {

// The module's version, in every log line and in every signature request.
inline constexpr const char* MODULE_VERSION = "2.1.2";

}  // namespace brivasign
