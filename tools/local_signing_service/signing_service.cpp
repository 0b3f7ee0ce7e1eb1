#include "signing_service.h"

#include <stdexcept>
#include <string_view>
#include <utility>

#include "base64.h"
#include "parse_number.h"
#include "signature_request.h"

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

std::string describe(const SignatureRequest& request) {
  return "application " + printable(request.application) + ", process " +
         printable(request.process) + ", certificate " + std::to_string(request.certificate) +
         ", hash " + request.hash + ", padding " + request.padding;
}

}  // namespace

SigningService::SigningService(Signer signer, const ServiceOptions& options, std::istream& answers,
                               std::ostream& log)
    : signer_(std::move(signer)), options_(options), answers_(answers), log_(log) {}

Reply SigningService::handle(const std::string& request) {
  const Answer answered = answer(request);
  if (answered.status != 200) {
    log_ << printableRequestLine(request) << ": ";
  }
  log_ << answered.event << '\n' << std::flush;
  return {statusLine(answered.status) + "Content-Type: application/json\r\nContent-Length: " +
          std::to_string(answered.json.size()) + "\r\nConnection: close\r\n" + answered.headers +
          "\r\n" + answered.json};
}

// `sentence` is always one of this program's own, so nothing in it needs escaping.
SigningService::Answer SigningService::failure(int status, const std::string& sentence) {
  return {status, R"({"erro":")" + sentence + R"("})",
          "error " + std::to_string(status) + ", " + sentence, ""};
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
  try {
    const SignatureRequest request = parseSignatureRequest(body, withPss);
    // Signing before anybody approves refuses an unfit challenge at once, and shows it to nobody.
    orders_.push_back(
        {describe(request),
         encodeBase64(signer_.sign(request.certificate, request.challenge, request.pss))});
  } catch (const std::invalid_argument& error) {
    return failure(400, error.what());
  }
  const std::string number = std::to_string(orders_.size());
  return {200, R"({"id":)" + number + R"(,"notificacaoEnviada":true})",
          "request " + number + ": " + orders_.back().description + ": filed", ""};
}

SigningService::Answer SigningService::query(const std::string& number) {
  const auto known = parseNumber<std::size_t>(number);
  if (!known || *known == 0 || *known > orders_.size()) {
    return failure(404, "there is no signature request with this number");
  }
  Order& order = orders_[*known - 1];
  if (order.verdict == Verdict::WAITING) {
    order.verdict = decide(*known, order);
  }
  const std::string event = "query " + std::to_string(*known) + ": " + order.description;
  switch (order.verdict) {
    case Verdict::APPROVED:
      return {200, R"({"status":"ACEITO","desafioAssinado":")" + order.signature + R"("})",
              event + ": approved", ""};
    case Verdict::REFUSED:
      return {200, R"({"status":"RECUSADO","desafioAssinado":null})", event + ": refused", ""};
    default:
      return {200, R"({"status":"AGUARDANDO","desafioAssinado":null})", event + ": waiting", ""};
  }
}

SigningService::Verdict SigningService::decide(std::size_t number, Order& order) {
  switch (options_.approval.mode) {
    case Approval::Mode::APPROVE:
      return order.queries++ < options_.approval.waitingQueries ? Verdict::WAITING
                                                                : Verdict::APPROVED;
    case Approval::Mode::REFUSE:
      return Verdict::REFUSED;
    case Approval::Mode::ASK:
      return ask(number);
    default:
      return Verdict::WAITING;
  }
}

SigningService::Verdict SigningService::ask(std::size_t number) {
  std::string typed;
  do {
    log_ << "request " << number << ": Approve? [y/n] " << std::flush;
    if (!std::getline(answers_, typed)) {
      log_ << '\n';
      return Verdict::REFUSED;
    }
  } while (typed != "y" && typed != "n");
  return typed == "y" ? Verdict::APPROVED : Verdict::REFUSED;
}

}  // namespace localservice
