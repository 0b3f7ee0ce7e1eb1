#pragma once

namespace brivasign {

// Appends one line, `message` (zero-terminated) behind the local time and the module's version, to
// "orvix.log" in the product folder. The TLS library's queued errors follow it, one line each, and
// leave the queue. Callable at any time. A log that cannot be opened is skipped: logging never
// changes the result of a call.
void writeLog(const char* message);

// Replaces the content of the file `name` (no folder part) of the product folder with `text`
// (zero-terminated), without a line break. A file that cannot be opened is skipped.
void writeStateFile(const char* name, const char* text);

}  // namespace brivasign
