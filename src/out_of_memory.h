#pragma once

namespace brivasign {

// Thrown where the TLS or the JSON library tells that there is no memory. Not std::bad_alloc, so
// that the module asks no more of the system's C++ library than it has to.
struct OutOfMemory {};

}  // namespace brivasign
