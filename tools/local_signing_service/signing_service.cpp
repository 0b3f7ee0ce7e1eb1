#include "signing_service.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base64.h"
#include "http_request.h"
#include "parse_number.h"
#include "printable.h"

namespace localservice {
namespace {

constexpr std::string_view PLAIN_PATH = "/brivasign-api/api/drivers/assinatura";
constexpr std::string_view PSS_PATH = "/brivasign-api/api/v2/drivers/assinatura";
constexpr std::string_view QUERY_PATH = "/brivasign-api/api/drivers/assinatura/";

std::string statusLine(int status) {
  switch (status) {
    case 200:
      return "HTTP/1.1 200 OK\r\n";
    case 400:
      return "HTTP/1.1 400 Bad Request\r\n";
    case 404:
      return "HTTP/1.1 404 Not Found\r\n";
    default:
      return "HTTP/1.1 405 Method Not Allowed\r\n";
  }
}

// The module asks twenty times, every two seconds.
constexpr std::chrono::seconds MODULE_PATIENCE{38};
constexpr std::chrono::seconds GIVEN_UP_AFTER{60};
constexpr std::ptrdiff_t SHOWN_OF_THE_PAST = 20;
constexpr std::size_t MOST_SHOWN = 200;  // bytes of a text of the client's

// Returns what a person can be shown of `text`.
std::string shown(const std::string& text) {
  return tools::cutTo(MOST_SHOWN, tools::printable(text));
}

EventLog::Fields fieldsOf(const Order& order) {
  const SignatureRequest& request = order.request;
  return {{"application", request.application},
          {"process", request.process},
          {"certificate", std::to_string(request.certificate)},
          {"holder", order.holder},
          {"hash", request.hash},
          {"padding", request.padding},
          {"bytes", std::to_string(request.challenge.size())}};
}

}  // namespace

const char* nameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::WAITING:
      return "waiting";
    case Verdict::APPROVED:
      return "approved";
    case Verdict::REFUSED:
      return "refused";
    default:
      return "given up";
  }
}

SigningService::SigningService(Signer signer, const ServiceOptions& options, EventLog& log,
                               std::function<Clock::time_point()> now)
    : signer_(std::move(signer)), options_(options), log_(log), now_(std::move(now)) {}

Reply SigningService::handle(const std::string& request, std::size_t connection) {
  const std::lock_guard lock(mutex_);
  lookAtClockNow();
  const Answer answered = answer(request);
  if (answered.status != 200) {
    log_.tell("connection", connection, "error " + std::to_string(answered.status),
              {{"line", requestLine(request)}, {"reason", answered.problem}});
  }
  return {statusLine(answered.status) + "Content-Type: application/json\r\nContent-Length: " +
          std::to_string(answered.json.size()) + "\r\nConnection: close\r\n" + answered.headers +
          "\r\n" + answered.json};
}

bool SigningService::decide(std::size_t number, bool isApproved) {
  const std::lock_guard lock(mutex_);
  lookAtClockNow();
  number = number == 0 ? oldestWaiting() : number;
  if (number == 0 || number > orders_.size() ||
      orders_[number - 1].order.verdict != Verdict::WAITING) {
    return false;
  }
  settle(orders_[number - 1], isApproved ? Verdict::APPROVED : Verdict::REFUSED);
  return true;
}

void SigningService::refuseAll() {
  const std::lock_guard lock(mutex_);
  while (const std::size_t number = oldestWaiting()) {
    settle(orders_[number - 1], Verdict::REFUSED);
  }
  options_.approval.mode = Approval::Mode::REFUSE;
}

void SigningService::lookAtClock() {
  const std::lock_guard lock(mutex_);
  lookAtClockNow();
}

std::optional<std::vector<Order>> SigningService::changed(std::uint64_t& version,
                                                          std::chrono::seconds patience) {
  std::unique_lock lock(mutex_);
  if (!changes_.wait_for(lock, patience, [&] { return version_ != version; })) {
    return std::nullopt;
  }
  version = version_;
  const auto isPast = [](const Filed& filed) { return filed.order.verdict != Verdict::WAITING; };
  auto hidden = std::count_if(orders_.begin(), orders_.end(), isPast) - SHOWN_OF_THE_PAST;
  const auto now = now_();
  std::vector<Order> orders;
  for (const Filed& filed : orders_) {
    if (!isPast(filed) || hidden-- <= 0) {
      orders.push_back(filed.order);
      orders.back().timeLeft =
          std::max(std::chrono::seconds(0),
                   std::chrono::ceil<std::chrono::seconds>(filed.filed + MODULE_PATIENCE - now));
    }
  }
  return orders;
}

// `sentence` is always one of this program's own, so nothing in it needs escaping.
SigningService::Answer SigningService::failure(int status, const std::string& sentence) {
  return {status, R"({"erro":")" + sentence + R"("})", sentence};
}

SigningService::Answer SigningService::wrongMethod(const std::string& allowed) {
  Answer answered = failure(405, "this path takes " + allowed + " only");
  answered.headers = "Allow: " + allowed + "\r\n";
  return answered;
}

SigningService::Answer SigningService::answer(const std::string& text) {
  const auto request = parseHttpRequest(text);
  if (!request) {
    return failure(400, "the request is not well-formed HTTP/1.1");
  }
  const bool withPss = request->target == PSS_PATH;
  if (withPss || request->target == PLAIN_PATH) {
    Answer answered =
        request->method == "POST" ? file(request->body, withPss) : wrongMethod("POST");
    if (options_.updateAvailable) {
      answered.headers += "x-app-update-available: true\r\n";
    }
    return answered;
  }
  if (request->target.starts_with(QUERY_PATH)) {
    return request->method == "GET" ? query(request->target.substr(QUERY_PATH.size()))
                                    : wrongMethod("GET");
  }
  return failure(404, "there is nothing under this path");
}

SigningService::Answer SigningService::file(const std::string& body, bool withPss) {
  const std::size_t number = orders_.size() + 1;
  try {
    SignatureRequest request = parseSignatureRequest(body, withPss);
    // Signing before anybody approves refuses an unfit challenge at once, and shows it to nobody.
    const std::string signature =
        encodeBase64(signer_.sign(request.certificate, request.challenge, request.pss));
    request.application = shown(request.application);
    request.process = shown(request.process);
    const std::string holder = shown(signer_.holder(request.certificate));
    orders_.push_back({{number, request, holder}, signature, now_(), now_()});
  } catch (const std::invalid_argument& error) {
    return failure(400, error.what());
  }
  open_.insert(number);
  log_.tell("request", number, "filed", fieldsOf(orders_.back().order));
  change();
  return {200, R"({"id":)" + std::to_string(number) + R"(,"notificacaoEnviada":true})"};
}

SigningService::Answer SigningService::query(const std::string& text) {
  const auto number = tools::parseNumber<std::size_t>(text);
  if (!number || *number == 0 || *number > orders_.size()) {
    return failure(404, "there is no signature request with this number");
  }
  Filed& filed = orders_[*number - 1];
  filed.lastQuery = now_();
  const Approval& approval = options_.approval;
  if (filed.order.verdict == Verdict::WAITING) {
    if (approval.mode == Approval::Mode::REFUSE) {
      settle(filed, Verdict::REFUSED);
    } else if (approval.mode == Approval::Mode::APPROVE && !approval.delay &&
               filed.queries++ >= approval.waitingQueries) {
      settle(filed, Verdict::APPROVED);
    }
  }
  if (filed.order.verdict == Verdict::WAITING) {
    log_.tell("request", *number, nameOf(Verdict::WAITING));
    return {200, R"({"status":"AGUARDANDO","desafioAssinado":null})"};
  }
  open_.erase(*number);
  if (filed.order.verdict == Verdict::APPROVED) {
    log_.tell("request", *number, "signature fetched");
    return {200, R"({"status":"ACEITO","desafioAssinado":")" + filed.signature + R"("})"};
  }
  log_.tell("request", *number, "refusal fetched");
  return {200, R"({"status":"RECUSADO","desafioAssinado":null})"};
}

void SigningService::lookAtClockNow() {
  const auto now = now_();
  for (auto at = open_.begin(); at != open_.end();) {
    const std::size_t number = *at++;
    Filed& filed = orders_[number - 1];
    const auto& delay = options_.approval.delay;
    if (filed.order.verdict == Verdict::WAITING && delay && now >= filed.filed + *delay) {
      settle(filed, Verdict::APPROVED);
    }
    if (now >= filed.lastQuery + GIVEN_UP_AFTER) {
      open_.erase(number);
      settle(filed, Verdict::GIVEN_UP);
    }
  }
}

void SigningService::settle(Filed& filed, Verdict verdict) {
  filed.order.verdict = verdict;
  change();
  log_.tell("request", filed.order.number, nameOf(verdict));
}

std::size_t SigningService::oldestWaiting() const {
  const auto found = std::find_if(open_.begin(), open_.end(), [&](std::size_t number) {
    return orders_[number - 1].order.verdict == Verdict::WAITING;
  });
  return found == open_.end() ? 0 : *found;
}

void SigningService::change() {
  ++version_;
  changes_.notify_all();
  if (options_.approval.mode != Approval::Mode::ASK) {
    return;
  }
  std::string question;
  if (const std::size_t number = oldestWaiting()) {
    question = "request " + std::to_string(number);
    for (const auto& [name, value] : fieldsOf(orders_[number - 1].order)) {
      question += std::string(", ") + name + ": " + value;
    }
    question += ": approve? [y/n] ";
  }
  log_.ask(question);
}

}  // namespace localservice
