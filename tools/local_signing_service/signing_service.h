#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "event_log.h"
#include "reply.h"
#include "signature_request.h"
#include "signer.h"

namespace localservice {

// Who decides on a filed request, and when.
struct Approval {
  // ASK and PHONE leave it to a person, who is asked on the terminal or by a page.
  enum class Mode { APPROVE, REFUSE, WAIT, ASK, PHONE };
  Mode mode = Mode::APPROVE;
  std::uint32_t waitingQueries = 0;  // APPROVE: so many queries are answered "waiting" before
  std::optional<std::chrono::seconds> delay{};  // APPROVE: so long after the filing instead
};

struct ServiceOptions {
  Approval approval;
  bool updateAvailable = false;  // tell applications so in replies to signature requests
};

enum class Verdict { WAITING, APPROVED, REFUSED, GIVEN_UP };

// Returns what people and programs are told of it: "given up", for instance.
const char* nameOf(Verdict verdict);

// A filed request as people are shown it: its texts are short, and safe on a terminal.
struct Order {
  std::size_t number;
  SignatureRequest request;
  std::string holder;  // of the certificate; "" where it is not at hand
  Verdict verdict = Verdict::WAITING;
  std::chrono::seconds timeLeft{0};  // until the module stops asking
};

// The signing service itself: files signature requests under rising numbers and answers queries
// about them, in memory only. What no query asks about for 60 s before it is fetched has been given
// up, and so cannot be decided, nor its signature be fetched, any more. Any thread may call it.
class SigningService {
 public:
  using Clock = std::chrono::steady_clock;

  // `log`, which is told of every event and asked the questions of Approval::Mode::ASK, must
  // outlive the service; `now` tells the time.
  SigningService(Signer signer, const ServiceOptions& options, EventLog& log,
                 std::function<Clock::time_point()> now = Clock::now);

  // Answers one HTTP request of the connection with this number, whatever it holds, with an HTTP
  // reply whose body is a JSON object.
  Reply handle(const std::string& request, std::size_t connection = 0);

  // Decides on the request `number`, or with 0 on the one that the question is about. Returns false
  // when it does not wait for that, or no more.
  bool decide(std::size_t number, bool isApproved);

  // Refuses what waits, and what will be filed.
  void refuseAll();

  // Does what is due by now, without being asked anything.
  void lookAtClock();

  // Returns what waits and the last that were decided or given up, each with the oldest first, as
  // soon as it is another than in `version`, which it sets; nothing when that takes longer than
  // `patience`.
  std::optional<std::vector<Order>> changed(std::uint64_t& version, std::chrono::seconds patience);

 private:
  struct Filed {
    Order order;
    std::string signature;  // base64
    Clock::time_point filed;
    Clock::time_point lastQuery;
    std::uint32_t queries = 0;
  };
  struct Answer {
    int status;
    std::string json;
    std::string problem{};  // of another status than 200
    std::string headers{};
  };

  static Answer failure(int status, const std::string& sentence);
  static Answer wrongMethod(const std::string& allowed);
  Answer answer(const std::string& text);
  Answer file(const std::string& body, bool withPss);
  Answer query(const std::string& text);
  void lookAtClockNow();
  void settle(Filed& filed, Verdict verdict);
  [[nodiscard]] std::size_t oldestWaiting() const;  // 0: none
  void change();

  const Signer signer_;
  ServiceOptions options_;
  EventLog& log_;
  const std::function<Clock::time_point()> now_;
  std::mutex mutex_;  // of all below
  std::condition_variable changes_;
  std::uint64_t version_ = 1;
  std::vector<Filed> orders_;   // number 1 first
  std::set<std::size_t> open_;  // the numbers of those whose application may still ask
};

}  // namespace localservice
