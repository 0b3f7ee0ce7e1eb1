#pragma once

#include <cstddef>

// What differs between platforms: one source for each.

namespace brivasign {

constexpr std::size_t EXECUTABLE_PATH_SIZE = 1024;  // bytes, terminator included

// Writes the full path of the executable that the module is loaded into, zero-terminated. A path
// that does not fit, or is not known, leaves an empty text.
void readExecutablePath(char (&path)[EXECUTABLE_PATH_SIZE]);

// How long a connection may be silent before the system asks whether the peer still lives, how
// often it asks again, and how many questions may go unanswered. Seconds.
constexpr int PROBE_AFTER = 30;
constexpr int PROBE_INTERVAL = 10;
constexpr int PROBE_COUNT = 3;

// Makes the system end the connection of `socket` with an error when the peer has vanished without
// a word (cable pulled, machine asleep). A peer that lives may be silent for as long as it likes.
void detectVanishedPeer(int socket);

}  // namespace brivasign
