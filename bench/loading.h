#pragma once

namespace bench {

// Loads the module at `path`, initialises, finalises and unloads it.
void loadModule(const char* path);

// The same with the empty library at `path`.
void loadEmptyLibrary(const char* path);

}  // namespace bench
