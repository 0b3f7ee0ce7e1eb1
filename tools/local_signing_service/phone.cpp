#include "phone.h"

#include <httplib.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <array>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "json.h"
#include "parse_number.h"
#include "phone_page.h"

namespace localservice {
namespace {

using httplib::Request;
using httplib::Response;

constexpr const char* HOST = "127.0.0.1";
// Each open page takes a thread.
constexpr std::size_t THREADS = 64;
// How often a page that has gone is looked for.
constexpr std::chrono::seconds HEARTBEAT{5};
constexpr std::size_t SHOWN_BYTES = 32;
constexpr std::size_t KEY_BYTES = 16;

enum Status { NO_CONTENT = 204, FORBIDDEN = 403, NOT_FOUND = 404, CONFLICT = 409 };

std::string hex(const std::string& bytes, const char* separator) {
  constexpr const char* DIGITS = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += text.empty() ? "" : separator;
    text += DIGITS[static_cast<unsigned char>(byte) >> 4U];
    text += DIGITS[static_cast<unsigned char>(byte) & 0xFU];
  }
  return text;
}

// Nobody guesses it, nor learns it from how long a refusal takes.
std::string randomKey() {
  std::array<unsigned char, KEY_BYTES> bytes{};
  if (RAND_bytes(bytes.data(), bytes.size()) != 1) {
    throw std::runtime_error("there are no random numbers");
  }
  return hex({bytes.begin(), bytes.end()}, "");
}

bool begins(const std::string& path, const std::string& way) {
  return path.size() >= way.size() && CRYPTO_memcmp(path.data(), way.data(), way.size()) == 0;
}

std::string jsonOf(const std::vector<Order>& orders) {
  json::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.StartArray();
  for (const Order& order : orders) {
    const SignatureRequest& request = order.request;
    writer.StartObject();
    member(writer, "number", order.number);
    member(writer, "state", nameOf(order.verdict));
    member(writer, "application", request.application);
    member(writer, "process", request.process);
    member(writer, "certificate", request.certificate);
    member(writer, "holder", order.holder);
    member(writer, "hash", request.hash);
    member(writer, "padding", request.padding);
    member(writer, "length", request.challenge.size());
    member(writer, "bytes", hex(request.challenge.substr(0, SHOWN_BYTES), " "));
    member(writer, "secondsLeft", static_cast<std::uint64_t>(order.timeLeft.count()));
    writer.EndObject();
  }
  writer.EndArray();
  return buffer.GetString();
}

// Sends the state of all requests now and whenever it changes, until the page goes.
void follow(SigningService& service, Response& response) {
  response.set_chunked_content_provider(
      "text/event-stream", [&service, version = std::uint64_t{0}](std::size_t /*offset*/,
                                                                  httplib::DataSink& sink) mutable {
        const auto orders = service.changed(version, HEARTBEAT);
        const std::string event = orders ? "data: " + jsonOf(*orders) + "\n\n" : ":\n\n";
        return sink.write(event.data(), event.size());
      });
}

}  // namespace

std::string decideOnPage(SigningService& service) {
  const auto server = std::make_shared<httplib::Server>();
  // Who is slow, or keeps a connection for later, takes a thread too.
  server->set_read_timeout(1);
  server->set_keep_alive_timeout(1);
  server->new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
  server->set_default_headers(
      {{"Cache-Control", "no-store"},
       {"Content-Security-Policy",
        "default-src 'none'; connect-src 'self'; script-src 'unsafe-inline'; "
        "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
       {"Referrer-Policy", "no-referrer"},
       {"X-Content-Type-Options", "nosniff"}});
  const int port = server->bind_to_any_port(HOST);
  if (port < 0) {
    throw std::runtime_error("there is no free port for the page");
  }
  const std::string suffix = ':' + std::to_string(port);
  const std::string way = '/' + randomKey() + '/';
  server->set_pre_routing_handler([=](const Request& request, Response& response) {
    // A site that has its own name resolve to this address would be asked for by that name.
    const std::string host = request.get_header_value("Host");
    const bool isHost = host == HOST + suffix || host == "localhost" + suffix;
    if (isHost && begins(request.path, way)) {
      return httplib::Server::HandlerResponse::Unhandled;
    }
    response.status = isHost ? NOT_FOUND : FORBIDDEN;
    response.set_content(isHost ? "there is nothing here\n" : "this is no name of this service\n",
                         "text/plain");
    return httplib::Server::HandlerResponse::Handled;
  });
  server->Get(way, [](const Request& /*request*/, Response& response) {
    response.set_content(PHONE_PAGE, "text/html; charset=utf-8");
  });
  server->Get(way + "events", [&service](const Request& /*request*/, Response& response) {
    follow(service, response);
  });
  server->Post(
      way + "([0-9]+)/(approve|refuse)", [&service](const Request& request, Response& response) {
        const auto number = tools::parseNumber<std::size_t>(request.matches[1].str());
        const bool isDone =
            number.value_or(0) != 0 && service.decide(*number, request.matches[2] == "approve");
        response.status = isDone ? NO_CONTENT : CONFLICT;
      });
  std::thread([server] { server->listen_after_bind(); }).detach();
  return std::string("http://") + HOST + suffix + way;
}

}  // namespace localservice
