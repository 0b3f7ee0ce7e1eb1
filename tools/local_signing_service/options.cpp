#include "options.h"

#include <map>
#include <utility>

#include "command_line.h"

namespace localservice {
namespace {

// Returns what `value` names in `choices`; throws CLI::ValidationError, which lists them after
// `others`, when it names nothing.
template <typename Choice>
Choice parseChoice(const std::string& option, const std::string& value,
                   const std::map<std::string, Choice>& choices, const std::string& others = "") {
  const auto found = choices.find(value);
  if (found != choices.end()) {
    return found->second;
  }
  std::string names = others;
  for (const auto& [name, choice] : choices) {
    names += (names.empty() ? "" : ", ") + name;
  }
  throw CLI::ValidationError(option, '"' + value + "\" is none of " + names);
}

Ending parseEnding(const std::string& option, const std::string& value) {
  return parseChoice<Ending>(
      option, value,
      {{"close-notify", Ending::CLOSE_NOTIFY}, {"close", Ending::CLOSE}, {"reset", Ending::RESET}});
}

template <typename Number>
Number parse(const std::string& option, const std::string& value) {
  return tools::wholeNumber<Number>(option, value);
}

// At most an hour: that a client goes meanwhile is not noticed.
std::chrono::milliseconds parseMilliseconds(const std::string& option, const std::string& value) {
  return std::chrono::milliseconds(tools::wholeNumber<std::uint32_t>(option, value, 0, 3'600'000));
}

Approval parseApproval(const std::string& option, const std::string& text) {
  constexpr std::string_view AFTER = "after=";
  if (text.starts_with(AFTER)) {
    const bool isTime = text.ends_with('s');
    const auto number = tools::parseNumber<std::uint32_t>(
        text.substr(AFTER.size(), text.size() - AFTER.size() - (isTime ? 1 : 0)));
    if (number && isTime) return {.delay = std::chrono::seconds(*number)};
    if (number) return {.waitingQueries = *number};
  }
  return {parseChoice<Approval::Mode>(option, text,
                                      {{"at-once", Approval::Mode::APPROVE},
                                       {"refuse", Approval::Mode::REFUSE},
                                       {"wait", Approval::Mode::WAIT},
                                       {"ask", Approval::Mode::ASK},
                                       {"phone", Approval::Mode::PHONE}},
                                      "after=N, after=Ns")};
}

// Some releases of the library drop blanks at the start of a line.
constexpr const char* APPROVALS =
    "What becomes of a signature request (default at-once):\n"
    "- at-once: approved at the first status query\n"
    "- after=N: approved after N queries answered \"waiting\"\n"
    "- after=Ns: approved N seconds after it was filed\n"
    "- refuse: refused at the first status query\n"
    "- wait: left waiting for ever\n"
    "- ask: a person at this terminal decides\n"
    "- phone: a person decides in a browser";

}  // namespace

std::optional<int> parseOptions(std::vector<std::string> arguments, Options& options) {
  CLI::App app(
      "Speaks the signing service's side of the wire on https://127.0.0.1, with real signatures.",
      "local-signing-service");
  // Has `take` read the value; the last of several counts.
  const auto add = [&](const std::string& name, const char* value, auto& target, auto take,
                       const std::string& description) {
    app.add_option_function<std::string>(
           name, [name, take, &target](const std::string& text) { target = take(name, text); },
           description)
        ->type_name(value)
        ->take_last();
  };
  app.add_option("--pki", options.pki,
                 "Folder made by make-local-pki: server.pem, server.key,\n"
                 "users/<number>.key; certificates beside the keys name\ntheir holders")
      ->type_name("DIR")
      ->take_last()
      ->check(CLI::ExistingDirectory)
      ->required();
  add("--port", "N", options.port, parse<std::uint16_t>,
      "Port to listen on (default " + std::to_string(PRODUCTION_PORT) + "); 0 takes any free one");
  add("--approval", "MODE", options.service.approval, parseApproval, APPROVALS);
  app.add_option("--reply-file", options.faults.replyFiles,
                 "Answer with the exact bytes of FILE instead; given more\n"
                 "than once, the files take turns and the last one repeats")
      ->type_name("FILE")
      ->allow_extra_args(false);
  add("--byte-delay", "MS", options.faults.byteDelay, parseMilliseconds,
      "Send every reply byte by byte, each in a TLS record of its\n"
      "own, with this pause before each");
  add("--close-after", "BYTES", options.faults.closeAfter, parse<std::size_t>,
      "End the connection after so many bytes of every reply");
  add("--ending", "MODE", options.faults.ending, parseEnding,
      "How connections end (default close-notify):\n"
      "- close-notify: in order\n"
      "- close: without TLS close_notify\n"
      "- reset: by a TCP reset");
  add("--stall", "MS", options.faults.stall, parseMilliseconds,
      "Once a client begins the handshake, say nothing for so long,\n"
      "then end the connection");
  app.add_flag("--update-available", options.service.updateAvailable,
               "Tell applications that an update is available");
  app.add_flag("--json", options.asJson, "Write each line of the log as a JSON object");
  app.footer("Example: local-signing-service --pki local-pki --approval after=2");
  return tools::parse(app, std::move(arguments), "local-signing-service " ORVIX_VERSION "\n");
}

}  // namespace localservice
