#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "http_request.h"
#include "reply.h"
#include "signer.h"

namespace localservice {

// Who decides on a filed request, and when. ASK puts the question to a person at the first query.
struct Approval {
  enum class Mode { APPROVE, REFUSE, WAIT, ASK };
  Mode mode = Mode::APPROVE;
  std::uint32_t waitingQueries = 0;  // APPROVE: so many queries are answered "waiting" before
};

struct ServiceOptions {
  Approval approval;
  bool updateAvailable = false;  // tell applications so in replies to signature requests
};

// The signing service itself: files signature requests under rising numbers and answers queries
// about them, in memory only.
class SigningService {
 public:
  // `log` gets one flushed line per request and the questions of Approval::Mode::ASK, `answers` is
  // read for the answers to them; both must outlive the service.
  SigningService(Signer signer, const ServiceOptions& options, std::istream& answers,
                 std::ostream& log);

  // Answers one HTTP request, whatever it holds, with an HTTP reply whose body is a JSON object.
  // Blocks while it asks a person. Calls must not overlap.
  Reply handle(const std::string& request);

 private:
  enum class Verdict { WAITING, APPROVED, REFUSED };
  struct Order {
    std::string description;
    std::string signature;  // base64
    std::uint32_t queries = 0;
    Verdict verdict = Verdict::WAITING;
  };
  struct Answer {
    int status;
    std::string json;
    std::string event;  // what the log says
    std::string headers;
  };

  static Answer failure(int status, const std::string& sentence);
  static Answer wrongMethod(const std::string& allowed);
  Answer answer(const std::string& text);
  Answer file(const std::string& body, bool withPss);
  Answer query(const std::string& number);
  Verdict decide(std::size_t number, Order& order);
  Verdict ask(std::size_t number);

  Signer signer_;
  ServiceOptions options_;
  std::istream& answers_;
  std::ostream& log_;
  std::vector<Order> orders_;  // number 1 first
};

}  // namespace localservice
