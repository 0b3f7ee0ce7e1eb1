#include "brivasign_check/channel_check.h"

#include "brivasign_check/connection.h"
#include "brivasign_check/handshake.h"

namespace diagnosis {
namespace {

// Connects to the first of `addresses` that accepts, into `connection`. `place` is host and port.
Finding checkConnection(const addrinfo* addresses, const std::string& place, Socket& connection) {
  std::string failures;
  for (const addrinfo* address = addresses; address != nullptr; address = address->ai_next) {
    const std::string text = addressText(*address);
    std::string reason;
    connection = connectTo(*address, reason);
    if (connection.get() >= 0) {
      return {Status::OK, "connection", std::string(place).append(" accepts at ").append(text)};
    }
    failures.append(failures.empty() ? "" : ", ").append(text).append(": ").append(reason);
  }
  return {Status::WRONG, "connection", "cannot connect to " + place + ": " + failures,
          "look whether a firewall blocks this host and port and whether the service is running"};
}

}  // namespace

Findings checkChannel(const brivasign::ServiceEnvironment& environment) {
  const std::string host = environment.host;
  std::string reason;
  const Addresses addresses = resolve(environment.host, environment.port, reason);
  if (addresses == nullptr) {
    return {{Status::WRONG, "name resolution", host + " does not resolve: " + reason,
             host.ends_with(".invalid")
                 ? "this build has a placeholder for the host; use one built with the service's"
                 : "look whether this computer is online and its name servers answer"}};
  }
  Findings findings = {{Status::OK, "name resolution", host + " is " + addressText(*addresses)}};
  Socket connection;
  findings.push_back(
      checkConnection(addresses.get(), host + " port " + environment.port, connection));
  if (connection.get() >= 0) {
    findings.push_back(checkHandshake(connection.get(), environment.host));
  }
  return findings;
}

}  // namespace diagnosis
