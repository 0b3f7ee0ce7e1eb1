// Finds out why the module does not list certificates or sign, and says what to do. Changes
// nothing.

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "brivasign_check/certificate_check.h"
#include "brivasign_check/channel_check.h"
#include "brivasign_check/environment_check.h"
#include "brivasign_check/folder_check.h"
#include "brivasign_check/log_check.h"
#include "brivasign_check/notification_check.h"
#include "brivasign_check/report.h"
#include "brivasign_check/run_facts.h"
#include "brivasign_check/time_limit.h"
#include "identity/identity.h"
#include "service/tls_settings.h"

namespace {

constexpr int SOMETHING_WRONG = 1;
constexpr int NO_REPORT = 2;

constexpr int LONGEST_LIMIT = 600;  // seconds

constexpr const char* USAGE =
    R"( [--json] [--timeout SECONDS]

Tells whether the module finds what it needs: the product folder, the environment, this machine's
identifier, the certificates, the signing service. Each line is ok, a note, or WRONG with the reason
and what to do. Changes nothing, sends the service no request, and shows no machine identifier.

  --json             write one JSON object instead, for support tickets; the names in certificates
                     may hold a tax number
  --timeout SECONDS  wait so long for each step, from 1 to 600 (default 10)
  --version          only print what this program and the module beside it were built from
  --help             print this text

Exit status: 0 nothing is wrong, 1 something is, 2 wrong usage or no report.
)";

struct Options {
  bool wantsHelp = false;
  bool wantsVersion = false;
  bool wantsJson = false;
  std::chrono::seconds limit{10};
};

// Returns the number of seconds that the whole of `text` writes; nothing unless it is a fit limit.
std::optional<std::chrono::seconds> parseLimit(const std::string& text) {
  int seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc() || stop != end || seconds < 1 || seconds > LONGEST_LIMIT) {
    return std::nullopt;
  }
  return std::chrono::seconds(seconds);
}

// Returns the options, or nothing and in `mistake` a sentence that names the bad argument.
std::optional<Options> parseOptions(const std::vector<std::string>& arguments,
                                    std::string& mistake) {
  Options options;
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    if (*argument == "--help") {
      options.wantsHelp = true;
    } else if (*argument == "--version") {
      options.wantsVersion = true;
    } else if (*argument == "--json") {
      options.wantsJson = true;
    } else if (*argument == "--timeout") {
      const bool hasValue = argument + 1 != arguments.end();
      const std::string text = hasValue ? *++argument : "";
      const auto limit = parseLimit(text);
      if (!limit) {
        mistake = "--timeout: \"" + text + "\" is no whole number from 1 to 600";
        return std::nullopt;
      }
      options.limit = *limit;
    } else {
      mistake = "unknown argument \"" + *argument + "\"";
      return std::nullopt;
    }
  }
  return options;
}

void append(diagnosis::Findings& all, const diagnosis::Findings& more) {
  all.insert(all.end(), more.begin(), more.end());
}

diagnosis::Report diagnose(const std::string& program, const diagnosis::TimeLimit& limit) {
  const std::string user = diagnosis::currentUser(limit);
  diagnosis::Report report = {program, diagnosis::runFacts(user, limit)};
  report.findings = {diagnosis::checkUser(user)};
  append(report.findings, diagnosis::checkFolder(limit));
  const bool hasFolder = report.isWell();
  const diagnosis::EnvironmentCheck environment = diagnosis::checkEnvironment(hasFolder, limit);
  report.findings.push_back(environment.finding);
  using diagnosis::Status;
  if (hasFolder) {
    append(report.findings, diagnosis::checkMachineIds(environment.index, limit));
    append(report.findings, diagnosis::checkCertificates(limit));
  } else {
    append(report.findings, {{Status::NOTE, "machine-identifier.unseen", diagnosis::UNSEEN},
                             {Status::NOTE, "certificate-folder.unseen", diagnosis::UNSEEN}});
  }
  append(report.findings,
         diagnosis::checkChannel(
             brivasign::serviceEnvironments[static_cast<std::size_t>(environment.index)], limit));
  report.findings.push_back(diagnosis::checkNotification(limit));
  if (hasFolder) {
    report.findings.push_back(diagnosis::checkUpdateFlag(limit));
    diagnosis::LogCheck log = diagnosis::checkLog(limit);
    report.findings.push_back(log.finding);
    report.logLines = std::move(log.lines);
  } else {
    append(report.findings, {{Status::NOTE, "update-flag.unseen", diagnosis::UNSEEN},
                             {Status::NOTE, "log.unseen", diagnosis::UNSEEN}});
  }
  return report;
}

// Writes `text` to standard output. Throws std::system_error when it does not take all of it.
void print(const std::string& text) {
  errno = 0;
  std::cout << text << std::flush;
  if (!std::cout) {
    throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
  }
}

int run(const std::string& program, const std::vector<std::string>& arguments) {
  std::string mistake;
  const auto parsed = parseOptions(arguments, mistake);
  if (!parsed) {
    std::cerr << program << ": " << mistake << "; --help tells the usage\n";
    return NO_REPORT;
  }
  const Options& options = *parsed;
  if (options.wantsHelp) {
    print("usage: " + program + USAGE);
    return 0;
  }
  if (options.wantsVersion) {
    print(brivasign::brivasignIdentity.line + std::string("\n"));
    return 0;
  }
  // A server that closes the connection early is a finding, not this program's end.
  std::signal(SIGPIPE, SIG_IGN);
  brivasign::startTlsLibrary();
  const diagnosis::TimeLimit limit(options.limit);
  const diagnosis::Report report = diagnose(program, limit);
  print(options.wantsJson ? jsonOf(report) : textOf(report));
  return report.isWell() ? 0 : SOMETHING_WRONG;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string program =
      argc > 0 ? std::filesystem::path(argv[0]).filename().string() : "brivasign-check";
  int status = NO_REPORT;
  try {
    status = run(program, std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& failure) {
    std::cerr << program << ": " << failure.what() << '\n';
  }
  // A step that was left to itself still uses what destructors would release.
  if (diagnosis::TimeLimit::leftAnyStep()) std::_Exit(status);
  return status;
}
