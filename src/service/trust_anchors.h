#pragma once

#include <span>

namespace brivasign {

// The CA certificates that vouch for the signing service and the module's only source of trust: one
// zero-terminated PEM text each, in the order in which they are loaded. They come from the
// deployment folder that the module is built with.
extern const std::span<const char* const> trustAnchors;

}  // namespace brivasign
