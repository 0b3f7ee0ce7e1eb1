#pragma once

#include <CLI/CLI.hpp>
#include <cerrno>
#include <concepts>
#include <iostream>
#include <limits>
#include <optional>
#include <string>
#include <system_error>

#include "exit_status.h"
#include "parse_number.h"

// What our programs add to the library that reads their command lines.
namespace tools {

// Writes `text` to standard output. Throws std::system_error when it does not take all of it.
inline void print(const std::string& text) {
  errno = 0;
  std::cout << text << std::flush;
  if (!std::cout) {
    throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
  }
}

// Returns the number from `least` to `most` that `value` writes in decimal digits; throws
// CLI::ValidationError, which names `option`, for any other text. The library itself takes more for
// a number: 010, which it reads as 8, and 0x10.
template <std::integral Number>
Number wholeNumber(const std::string& option, const std::string& value, Number least = 0,
                   Number most = std::numeric_limits<Number>::max()) {
  const auto number = parseNumber<Number>(value);
  if (!number || *number < least || *number > most) {
    throw CLI::ValidationError(option, '"' + value + "\" is no whole number from " +
                                           std::to_string(least) + " to " + std::to_string(most));
  }
  return *number;
}

// Reads the command line, without the program's name, into what `app` was told. Returns nothing
// when the program is to go on; else the status to end with, after --help, after --version where
// there is a `version` to print, or after a sentence on standard error that names the bad argument.
// Neither these options nor an argument too many throws, as the library's own would.
inline std::optional<int> parse(CLI::App& app, std::vector<std::string> arguments,
                                const std::string& version = "") {
  const CLI::Option* const asked =
      version.empty() ? nullptr : app.add_flag("--version")->description("Print the version");
  app.set_help_flag();
  const CLI::Option* const help = app.add_flag("--help")->description("Print this text");
  app.allow_extras();
  std::string mistake;
  try {
    // The library wants them in this order.
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    const std::vector<std::string> unknown = app.remaining();
    if (!unknown.empty()) mistake = "The following argument was not expected: " + unknown.front();
  } catch (const CLI::ParseError& error) {
    mistake = error.what();
  }
  // Whatever else may be wrong.
  if (help->count() > 0) {
    print(app.help());
    return 0;
  }
  if (asked != nullptr && asked->count() > 0) {
    print(version);
    return 0;
  }
  if (mistake.empty()) return std::nullopt;
  std::cerr << app.get_name() << ": " << mistake << "; --help tells the usage\n";
  return WRONG_USAGE;
}

}  // namespace tools
