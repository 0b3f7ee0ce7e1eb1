#include "options.h"

#include <limits>
#include <map>
#include <stdexcept>

#include "parse_number.h"

namespace localservice {
namespace {

template <typename Number>
Number parseValue(const std::string& option, const std::string& value) {
  const auto number = parseNumber<Number>(value);
  if (!number) {
    throw std::invalid_argument("option " + option + ": \"" + value +
                                "\" is not a whole number from 0 to " +
                                std::to_string(std::numeric_limits<Number>::max()));
  }
  return *number;
}

std::chrono::milliseconds parseMilliseconds(const std::string& option, const std::string& value) {
  return std::chrono::milliseconds(parseValue<std::uint32_t>(option, value));
}

Ending parseEnding(const std::string& option, const std::string& value) {
  const std::map<std::string, Ending> ENDINGS{
      {"close-notify", Ending::CLOSE_NOTIFY}, {"close", Ending::CLOSE}, {"reset", Ending::RESET}};
  const auto ending = ENDINGS.find(value);
  if (ending == ENDINGS.end()) {
    throw std::invalid_argument("option " + option + ": \"" + value +
                                "\" is none of close-notify, close, reset");
  }
  return ending->second;
}

Approval parseApproval(const std::string& option, const std::string& value) {
  constexpr std::string_view AFTER = "after=";
  const std::map<std::string, Approval::Mode> MODES{{"at-once", Approval::Mode::APPROVE},
                                                    {"refuse", Approval::Mode::REFUSE},
                                                    {"wait", Approval::Mode::WAIT},
                                                    {"ask", Approval::Mode::ASK}};
  if (value.starts_with(AFTER)) {
    return {Approval::Mode::APPROVE, parseValue<std::uint32_t>(option, value.substr(AFTER.size()))};
  }
  const auto mode = MODES.find(value);
  if (mode == MODES.end()) {
    throw std::invalid_argument("option " + option + ": \"" + value +
                                "\" is none of at-once, after=N, refuse, wait, ask");
  }
  return {mode->second};
}

}  // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    const std::string& name = *argument;
    const auto value = [&]() -> const std::string& {
      if (++argument == arguments.end()) {
        throw std::invalid_argument("option " + name + " needs a value");
      }
      return *argument;
    };
    if (name == "--help") {
      options.help = true;
      return options;
    }
    if (name == "--pki") {
      options.pki = value();
    } else if (name == "--port") {
      options.port = parseValue<std::uint16_t>(name, value());
    } else if (name == "--approval") {
      options.service.approval = parseApproval(name, value());
    } else if (name == "--reply-file") {
      options.faults.replyFiles.emplace_back(value());
    } else if (name == "--byte-delay") {
      options.faults.byteDelay = parseMilliseconds(name, value());
    } else if (name == "--close-after") {
      options.faults.closeAfter = parseValue<std::size_t>(name, value());
    } else if (name == "--ending") {
      options.faults.ending = parseEnding(name, value());
    } else if (name == "--stall") {
      options.faults.stall = parseMilliseconds(name, value());
    } else if (name == "--update-available") {
      options.service.updateAvailable = true;
    } else {
      throw std::invalid_argument("unknown option " + name + "; --help lists the known ones");
    }
  }
  if (options.pki.empty()) {
    throw std::invalid_argument("option --pki is missing; --help explains it");
  }
  return options;
}

std::string usage() {
  return std::string(R"(usage: local-signing-service --pki DIR [OPTION]...

Speaks the signing service's side of the wire on https://127.0.0.1, with real signatures.

  --pki DIR           folder made by make-local-pki: server.pem, server.key, users/<number>.key
  --port N            port to listen on (default )") +
         std::to_string(PRODUCTION_PORT) +
         R"(; 0 takes any free one)
  --approval MODE     what becomes of a signature request (default at-once):
                        at-once  approved at the first status query
                        after=N  approved after N status queries answered "waiting"
                        refuse   refused at the first status query
                        wait     left waiting for ever
                        ask      a person at this terminal decides at the first status query
  --reply-file FILE   answer with the exact bytes of FILE instead; given more than once, the
                      files take turns and the last one repeats
  --byte-delay MS     send every reply byte by byte, each in a TLS record of its own, with this
                      pause before each
  --close-after BYTES end the connection after so many bytes of every reply
  --ending MODE       how connections end (default close-notify):
                        close-notify  in order
                        close         without TLS close_notify
                        reset         by a TCP reset
  --stall MS          once a client begins the handshake, say nothing for so long, then end the
                      connection
  --update-available  tell applications that an update is available
  --help              print this text

example: local-signing-service --pki local-pki --approval after=2
)";
}

}  // namespace localservice
