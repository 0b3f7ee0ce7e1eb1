#include "brivasign_check/channel_check.h"

#include "brivasign_check/connection.h"
#include "brivasign_check/handshake.h"

namespace diagnosis {
namespace {

constexpr const char* NO_PROXY = "no proxy is used: this host and port must be reachable directly";

// Resolves the host of `environment` into `addresses`; none on failure.
Finding checkName(const brivasign::ServiceEnvironment& environment, const TimeLimit& limit,
                  std::vector<Address>& addresses) {
  const std::string host = environment.host;
  // A name server that answers for every name must not hide it.
  if (host.ends_with(".invalid")) {
    return {Status::WRONG, "name-resolution.placeholder",
            host + " does not resolve: it is a placeholder",
            "use a module that was built with the service's hosts"};
  }
  const std::string advice =
      "look whether this computer is online and its name servers answer; " + std::string(NO_PROXY);
  auto resolution = limit.run("the name resolution of " + host, [environment] {
    return resolve(environment.host, environment.port);
  });
  if (!resolution) {
    return {Status::WRONG, "name-resolution.timeout", host + ": " + limit.exceeded(), advice};
  }
  if (resolution->addresses.empty()) {
    return {Status::WRONG, "name-resolution.failed",
            host + " does not resolve: " + resolution->reason, advice};
  }
  addresses = std::move(resolution->addresses);
  std::string list;
  for (const Address& address : addresses) {
    list.append(list.empty() ? "" : ", ").append(addressText(address));
  }
  return {Status::OK, "name-resolution.ok", host + " is " + list};
}

// Connects to the first of `addresses` that accepts, into `socket`. `place` is host and port.
Finding checkConnection(const std::vector<Address>& addresses, const std::string& place,
                        const TimeLimit& limit, Socket& socket) {
  std::string accepted;
  std::string failures;
  bool isLate = false;
  bool isRefused = false;
  for (const Address& address : addresses) {
    const std::string text = addressText(address);
    auto attempt = limit.run("a connection to " + text, [address] { return connectTo(address); });
    if (attempt && attempt->reason.empty()) {
      socket = std::move(attempt->socket);
      accepted = text;
      break;
    }
    (attempt ? isRefused : isLate) = true;
    failures.append(failures.empty() ? "" : ", ").append(text).append(": ");
    failures.append(attempt ? attempt->reason : limit.exceeded());
  }
  if (!accepted.empty()) {
    const std::string message = place + " accepts at " + accepted;
    if (!isLate) return {Status::OK, "connection.ok", message};
    return {Status::NOTE, "connection.slow",
            message + ", but applications try others first (" + failures + ")",
            "each signature waits for minutes at an address that does not answer: let those who "
            "run the network or the service see to it"};
  }
  const std::string message = "cannot connect to " + place + ": " + failures;
  if (!isRefused) {
    return {Status::WRONG, "connection.timeout", message,
            "look for a firewall that drops what is sent to this host and port: applications hang "
            "for minutes when they sign"};
  }
  return {Status::WRONG, "connection.failed", message,
          place.starts_with("localhost ") ? "start local-signing-service"
                                          : "look whether a firewall blocks this host and port and "
                                            "whether the service is running; " +
                                                std::string(NO_PROXY)};
}

}  // namespace

Findings checkChannel(const brivasign::ServiceEnvironment& environment, const TimeLimit& limit) {
  std::vector<Address> addresses;
  Socket socket;
  const std::string place = std::string(environment.host) + " port " + environment.port;
  const Finding unconnected = {Status::NOTE, "secure-channel.unseen",
                               "not tried, because there is no connection"};
  Findings findings = {checkName(environment, limit, addresses)};
  if (addresses.empty()) {
    findings.push_back(
        {Status::NOTE, "connection.unseen", "not tried, because there is no address"});
    findings.push_back(unconnected);
    return findings;
  }
  findings.push_back(checkConnection(addresses, place, limit, socket));
  if (socket.get() < 0) {
    findings.push_back(unconnected);
    return findings;
  }
  auto handshake = limit.run("the handshake with " + place,
                             [socket = std::move(socket), host = environment.host] {
                               return checkHandshake(socket.get(), host);
                             });
  findings.push_back(handshake.value_or(
      Finding{Status::WRONG, "secure-channel.timeout",
              "the connection stands, but the handshake gets " + limit.exceeded(),
              "applications wait for ever here: look for a firewall or proxy that lets the "
              "connection through and nothing else, and tell those who run the service"}));
  return findings;
}

}  // namespace diagnosis
