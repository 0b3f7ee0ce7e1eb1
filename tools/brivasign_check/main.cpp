// Finds out why the module does not list certificates or sign, and says what to do. Changes
// nothing.

#include <csignal>
#include <exception>
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
#include "identity/identity.h"
#include "service/tls_settings.h"

namespace {

constexpr int SOMETHING_WRONG = 1;
constexpr int BAD_USAGE = 2;

constexpr const char* USAGE =
    R"(usage: brivasign-check [--json | --version]

Tells whether the module finds what it needs: the product folder, the environment, this machine's
identifier, the certificates, the signing service. Each line is ok, a note, or WRONG with the reason
and what to do. Changes nothing, sends the service no request, and shows no machine identifier.

  --json     write one JSON object instead, for support tickets
  --version  only print what this program and the module beside it were built from
  --help     print this text

Exit status: 0 all is well, 1 something is wrong, 2 wrong usage.
)";

void append(diagnosis::Findings& all, const diagnosis::Findings& more) {
  all.insert(all.end(), more.begin(), more.end());
}

diagnosis::Report diagnose() {
  diagnosis::Report report = {diagnosis::checkFolder(), {}};
  const bool hasFolder = report.isWell();
  const brivasign::EnvironmentChoice choice = brivasign::readEnvironmentChoice();
  report.findings.push_back(diagnosis::checkEnvironment(choice));
  if (hasFolder) {
    report.findings.push_back(diagnosis::checkMachineId(choice.index));
    append(report.findings, diagnosis::checkCertificates());
  } else {
    report.findings.push_back({diagnosis::Status::NOTE, "machine identifier, certificates, log",
                               "not looked at: they are in the product folder"});
  }
  append(report.findings,
         diagnosis::checkChannel(
             brivasign::serviceEnvironments[static_cast<std::size_t>(choice.index)]));
  report.findings.push_back(diagnosis::checkNotification());
  if (hasFolder) {
    report.findings.push_back(diagnosis::checkLog());
    report.logLines = diagnosis::lastLogLines();
  }
  return report;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool wantsJson = arguments == std::vector<std::string>{"--json"};
    const bool wantsHelp = arguments == std::vector<std::string>{"--help"};
    if (arguments == std::vector<std::string>{"--version"}) {
      std::cout << brivasign::brivasignIdentity.line << '\n';
      return 0;
    }
    if (!arguments.empty() && !wantsJson && !wantsHelp) {
      std::cerr << USAGE;
      return BAD_USAGE;
    }
    if (wantsHelp) {
      std::cout << USAGE;
      return 0;
    }
    // A server that closes the connection early is a finding, not this program's end.
    std::signal(SIGPIPE, SIG_IGN);
    brivasign::startTlsLibrary();
    const diagnosis::Report report = diagnose();
    (wantsJson ? diagnosis::writeJson : diagnosis::writeText)(report, std::cout);
    return report.isWell() ? 0 : SOMETHING_WRONG;
  } catch (const std::exception& failure) {
    std::cerr << "brivasign-check: " << failure.what() << '\n';
    return SOMETHING_WRONG;
  }
}
