// Finds out why the module does not list certificates or sign, and says what to do. Changes
// nothing.

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
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
#include "command_line.h"
#include "identity/identity.h"
#include "service/tls_settings.h"

namespace {

constexpr int SOMETHING_WRONG = 1;
constexpr int NO_REPORT = 2;

constexpr int DEFAULT_LIMIT = 10;   // seconds
constexpr int LONGEST_LIMIT = 600;  // seconds

constexpr const char* PURPOSE =
    R"(Tells whether the module finds what it needs: the product folder, the environment, this machine's
identifier, the certificates, the signing service. Each line is ok, a note, or WRONG with the reason
and what to do. Changes nothing, sends the service no request, and shows no machine identifier.)";

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
    append(report.findings, diagnosis::checkMachineIds(environment, limit));
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

int run(const std::string& program, const std::vector<std::string>& arguments) {
  CLI::App app(PURPOSE, program);
  bool wantsJson = false;
  bool wantsVersion = false;
  std::chrono::seconds limit(DEFAULT_LIMIT);
  auto* const json = app.add_flag("--json", wantsJson,
                                  "Write one JSON object instead, for support tickets;\n"
                                  "the names in certificates may hold a tax number");
  app.add_option_function<std::string>(
         "--timeout",
         [&](const std::string& value) {
           limit = std::chrono::seconds(tools::wholeNumber("--timeout", value, 1, LONGEST_LIMIT));
         },
         "Wait so long for each step, from 1 to 600 (default 10)")
      ->type_name("SECONDS")
      ->take_last();
  app.add_flag("--version", wantsVersion, "Only print what this program was built from")
      ->excludes(json);
  app.footer("Exit status: 0 nothing is wrong, 1 something is, 2 wrong usage or no report.");
  if (const auto status = tools::parse(app, arguments)) return *status;
  if (wantsVersion) {
    tools::print(brivasign::brivasignIdentity.line + std::string("\n"));
    return 0;
  }
  // A server that closes the connection early is a finding, not this program's end.
  std::signal(SIGPIPE, SIG_IGN);
  brivasign::startTlsLibrary();
  const diagnosis::Report report = diagnose(program, diagnosis::TimeLimit(limit));
  tools::print(wantsJson ? jsonOf(report) : textOf(report));
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
